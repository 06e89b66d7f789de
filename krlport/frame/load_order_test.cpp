// Unloading: a program that does not link the library loads it, uses it and
// closes its only handle. The library must be gone from the address space,
// and its terminators must have run then, not at process exit:
// - a first-use terminator: the logger's, which deletes the streams it owns;
//   a stream of this program, handed over owned, sees its own destructor run;
// - the load-order objects' destructors: the debug logger, the last of them,
//   closes its open file, which then is open no more in this process.
// The library is reached by the mangled names of exported static members
// (Itanium ABI, also that of mingw), so this program needs none of its
// symbols at link. On Linux: dlopen, dlclose, /proc/self/maps and
// /proc/self/fd; on Windows: LoadLibraryA, FreeLibrary, GetModuleHandleA and
// an open without sharing, which fails while another handle holds the file.
#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>
#endif

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#define KRL_TEST_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KRL_TEST_LSAN 1
#endif
#endif
#ifdef KRL_TEST_LSAN
#include <sanitizer/lsan_interface.h>
#endif

namespace {

namespace fs = std::filesystem;

#if defined(_WIN32)
constexpr std::size_t kPathMax = MAX_PATH;

// The DLL beside this program; LoadLibraryA looks there first.
std::string library_file() { return KRLPORT_SHARED_LIBRARY; }

bool mapped(const std::string& name) { return ::GetModuleHandleA(name.c_str()) != nullptr; }

void* open_library(const std::string& name, std::string& error) {
  void* handle = reinterpret_cast<void*>(::LoadLibraryA(name.c_str()));
  if (handle == nullptr) error = "LoadLibraryA: " + std::to_string(::GetLastError());
  return handle;
}

bool close_library(void* handle) { return ::FreeLibrary(static_cast<HMODULE>(handle)) != 0; }

void* find_symbol(void* library, const char* name) {
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

bool open_in_this_process(const std::string& path) {
  HANDLE file = ::CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError() == ERROR_SHARING_VIOLATION;
  ::CloseHandle(file);
  return false;
}
#else
constexpr std::size_t kPathMax = PATH_MAX;

std::string library_file() { return fs::canonical(KRLPORT_SHARED_LIBRARY).string(); }

bool mapped(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(path) != std::string::npos) return true;
  }
  return false;
}

void* open_library(const std::string& path, std::string& error) {
  void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) error = ::dlerror();
  return handle;
}

bool close_library(void* handle) { return ::dlclose(handle) == 0; }

void* find_symbol(void* library, const char* name) { return ::dlsym(library, name); }

bool open_in_this_process(const std::string& path) {
  std::error_code ignored;
  for (const auto& fd : fs::directory_iterator("/proc/self/fd", ignored)) {
    if (fs::read_symlink(fd.path(), ignored) == path) return true;
  }
  return false;
}
#endif

// A stream whose end this program sees.
struct WatchedStream : std::ostream {
  explicit WatchedStream(bool& ended) : std::ostream(nullptr), ended(ended) {}
  ~WatchedStream() override { ended = true; }
  bool& ended;
};

template <class F>
F symbol(void* library, const char* name) {
  return reinterpret_cast<F>(find_symbol(library, name));
}

TEST(LoadOrderUnload, ClosingTheLastHandleUnmapsTheLibraryAndRunsItsTerminators) {
  const std::string library = library_file();
  ASSERT_FALSE(mapped(library));
#ifdef KRL_TEST_LSAN
  // The exception registry is never freed, by design; once the library is
  // unmapped nothing points at it any more. Not a leak of this test.
  __lsan_disable();
#endif
  std::string error;
  void* handle = open_library(library, error);
#ifdef KRL_TEST_LSAN
  __lsan_enable();
#endif
  ASSERT_NE(handle, nullptr) << error;
  ASSERT_TRUE(mapped(library));

  using LogTo = int (*)(const char*, char*, unsigned int);
  using Enable = int (*)(unsigned long);
  using Record = int (*)(int, unsigned long, const char*, int, const char*);
  using ReplaceOut = void (*)(std::ostream&, int);
  const auto log_to = symbol<LogTo>(handle, "_ZN11KRLDebugLog6log_toEPKcPcj");
  const auto enable = symbol<Enable>(handle, "_ZN11KRLDebugLog6enableEm");
  const auto record = symbol<Record>(handle, "_ZN11KRLDebugLog6recordEimPKciS1_");
  const auto replace_out = symbol<ReplaceOut>(handle, "_ZN9KRLLogger11replace_outERSoi");
  ASSERT_TRUE(log_to != nullptr && enable != nullptr && record != nullptr &&
              replace_out != nullptr);

  // The debug log's file goes below KORLAN_ADM, this test binary's own
  // temporary directory; it is opened at the first record.
  char path[kPathMax];
  ASSERT_EQ(log_to("unload.log", path, sizeof path), 1);
  ASSERT_EQ(enable(0x10000001), 1);
  ASSERT_EQ(record(0, 0x10000001, "load_order_test", __LINE__, "loaded"), 1);
  ASSERT_TRUE(open_in_this_process(path));

  bool ended = false;
  replace_out(*new WatchedStream(ended), 1);  // builds the logger; its terminator deletes this
  ASSERT_FALSE(ended);

  ASSERT_TRUE(close_library(handle));
  EXPECT_FALSE(mapped(library));
  EXPECT_TRUE(ended);
  EXPECT_FALSE(open_in_this_process(path));
}

}  // namespace
