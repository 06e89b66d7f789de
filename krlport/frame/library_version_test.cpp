// Linked against the shared library: what krlport_version reports is what
// the loaded libkrlport_r_6.so was compiled with.
#include "krlport/frame/library_version.h"

#include <gtest/gtest.h>

#include <string>

TEST(LibraryVersion, HeaderMacrosAgreeWithTheLoadedLibraryAndTheProject) {
  int major = -1;
  int minor = -1;
  int patch = -1;
  krlport_version(&major, &minor, &patch);
  EXPECT_EQ(major, KRLPORT_VERSION_MAJOR);
  EXPECT_EQ(minor, KRLPORT_VERSION_MINOR);
  EXPECT_EQ(patch, KRLPORT_VERSION_PATCH);
  EXPECT_TRUE(krlport_version_matches());
  // The generated header carries project(VERSION), each number in its place.
  EXPECT_EQ(std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch),
            KRLPORT_PROJECT_VERSION);

  krlport_version(nullptr, &minor, nullptr);  // a null pointer is skipped
  EXPECT_EQ(minor, KRLPORT_VERSION_MINOR);
}
