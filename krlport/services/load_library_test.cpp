#include "krlport/services/load_library.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include "krlport/platform/loader.h"
#include "krlport/portable/test_support.h"

namespace krl_internal {
struct LoadLibraryPeer {
  static auto& table() { return KRLLoadLibrary::instance()->_libraries; }
  static auto load(const char* name) { return KRLLoadLibrary::instance()->_loadLibrary(name, 1); }
};
}  // namespace krl_internal

namespace {

using krl_internal::LoadLibraryPeer;

#if defined(_WIN32)
constexpr char kPlugin[] = "krltestplugin_r.dll";  // beside the test program
// A system DLL, which has no wrapped form.
constexpr char kPlainOnly[] = "version.dll";
constexpr unsigned long kNotFound = ERROR_MOD_NOT_FOUND;

bool loaded(const char* name) { return ::GetModuleHandleA(name) != nullptr; }
#else
constexpr char kPlugin[] = "libkrltestplugin_r.so";  // found through the test's run path
constexpr char kPlainOnly[] = "libm.so.6";
constexpr unsigned long kNotFound = ENOENT;

bool loaded(const char* name) {  // the probe's reference goes back
  void* handle = ::dlopen(name, RTLD_NOW | RTLD_NOLOAD);
  return handle != nullptr && ::dlclose(handle) == 0;
}
#endif

TEST(LoadLibraryTest, LoadsOnceUnloadsOnlyByTheRecordedNameAndReleasesAll) {
  auto& table = LoadLibraryPeer::table();
  KRLLoadLibrary::instance()->Load("krltestplugin");
  KRLLoadLibrary::instance()->Load("krltestplugin");  // recorded: no second reference
  KRLLoadLibrary::instance()->Load(kPlainOnly);       // tried after its wrapped form
  EXPECT_EQ(2u, table._count);
  EXPECT_TRUE(table.contains(CORBA_String_var(kPlainOnly)));
  KRLLoadLibrary::instance()->Unload("krltestplugin");
  EXPECT_TRUE(loaded(kPlugin));
  KRLLoadLibrary::instance()->Unload(kPlugin);
  EXPECT_FALSE(loaded(kPlugin));
  // Each with a reference; removals move entries into slots the walk has passed.
  unsigned long error = 0;
  std::string text;
  for (int i = 0; i < 200; ++i) {
    void* handle = krl_internal::open_library(kPlugin, error, text);
    table.insert(std::to_string(i * 7919).c_str(), static_cast<HINSTANCE__*>(handle));
  }
  KRLLoadLibrary::instance()->UnloadAll();
  EXPECT_EQ(0u, table._count);
  EXPECT_FALSE(loaded(kPlugin));
}

TEST(LoadLibraryTest, AMissingLibraryIsReportedOnCerrOrRaisedAsLoadError) {
  const std::string missing = "krl_no_such_library", tail = "]: \n";
  for (const std::string& name : {missing, std::string(3000, 'x')}) {
    krl_test::Capture err(std::cerr);
    KRLLoadLibrary::instance()->Load(name.c_str());
    EXPECT_EQ("LoadLibrary failed for [" + name + tail, err.text());
  }
  EXPECT_EQ(0u, LoadLibraryPeer::table()._count);
  try {
    LoadLibraryPeer::load(missing.c_str());
    ADD_FAILURE() << "no LoadError";
  } catch (KRLLoadLibrary::LoadError& e) {
    const CORBA_Exception_var copy(e._deep_copy());
    const auto* error = KRLLoadLibrary::LoadError::_downcast(copy);
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(kNotFound, error->_code);
#if defined(_WIN32)
    EXPECT_EQ(nullptr, static_cast<const char*>(error->_text));  // LoadLibraryA gives no text
#else
    EXPECT_NE(nullptr, std::strstr(error->_text, missing.c_str()));
#endif
  }
}

}  // namespace
