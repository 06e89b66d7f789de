/// @file
/// krlport_version: which library the host has loaded. A host calls it at
/// start-up to check that the headers it was compiled with (krlport/version.h)
/// and the libkrlport_r_6 the loader found are the same release. A host entry
/// point of this port, beside the fixed interface.
#ifndef KRLPORT_FRAME_LIBRARY_VERSION_H_
#define KRLPORT_FRAME_LIBRARY_VERSION_H_

#include "krlport/frame/export.h"
#include "krlport/version.h"

/// Stores the loaded library's major, minor and patch numbers; a null pointer
/// is skipped. Safe from any thread, at any time, also during load and unload.
KRL_EXPORT void krlport_version(int* major, int* minor, int* patch) noexcept;

/// True when the loaded library is exactly the release of these headers.
inline bool krlport_version_matches() noexcept {
  int major = -1;
  int minor = -1;
  int patch = -1;
  krlport_version(&major, &minor, &patch);
  return major == KRLPORT_VERSION_MAJOR && minor == KRLPORT_VERSION_MINOR &&
         patch == KRLPORT_VERSION_PATCH;
}

#endif  // KRLPORT_FRAME_LIBRARY_VERSION_H_
