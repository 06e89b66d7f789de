// Linked into every test binary by krl_test (cmake/KrlportHelpers.cmake).
//
// Where the library writes on its own (KRLLogger's files, the debug log's,
// and the bare file name in the current directory when a log directory
// cannot be made), a test writes below a fresh temporary directory: before
// any other initialiser of the test binary runs, KORLAN_ADM names that
// directory, and the current directory becomes it when the tests start (not
// earlier: GoogleTest notes the original one for its death tests).
//
// Children (forked or re-executed death tests, programs a test runs) inherit
// KRLPORT_TEST_SANDBOX and use the same directory; only the process that made
// it removes it, at exit, after every other exit-time handler of the binary.
// On Windows every death test re-executes the program, which finds the
// variable in its environment like any other child.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <direct.h>
#include <errno.h>
#include <process.h>
#else
#include <limits.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace {

constexpr const char* kSandboxVariable = "KRLPORT_TEST_SANDBOX";

// Plain data: constant-initialised, so no later initialiser resets them.
char g_sandbox[4096];
long g_owner = 0;  // the process that made it; 0 when inherited

#ifdef _WIN32
long process_id() { return ::_getpid(); }
void set_variable(const char* name, const char* value) { ::_putenv_s(name, value); }
int change_directory(const char* dir) { return ::_chdir(dir); }

// mkdtemp's counterpart: a new directory of a random name, retried on a clash.
bool make_unique_directory(std::string& templ) {
  const std::size_t stem = templ.size() - 6;
  std::random_device seed;
  std::mt19937 random(seed() ^ static_cast<unsigned>(::_getpid()));
  const char digits[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (int attempt = 0; attempt < 100; ++attempt) {
    for (std::size_t i = stem; i < templ.size(); ++i) templ[i] = digits[random() % 36];
    if (::_mkdir(templ.c_str()) == 0) return true;
    if (errno != EEXIST) return false;
  }
  return false;
}
#else
long process_id() { return ::getpid(); }
void set_variable(const char* name, const char* value) { ::setenv(name, value, 1); }
int change_directory(const char* dir) { return ::chdir(dir); }
bool make_unique_directory(std::string& templ) { return ::mkdtemp(&templ[0]) != nullptr; }
#endif

void remove_sandbox() {
  if (g_owner != process_id()) return;  // a forked child exits through here too
  std::error_code ignored;
  // Windows removes no directory that is a process's current one.
  const std::filesystem::path sandbox(g_sandbox);
  change_directory(sandbox.parent_path().string().c_str());
  std::filesystem::remove_all(sandbox, ignored);
}

__attribute__((constructor(101))) void make_sandbox() {
  std::error_code error;
  const char* const inherited = std::getenv(kSandboxVariable);
  if (inherited != nullptr && std::filesystem::is_directory(inherited, error)) {
    std::snprintf(g_sandbox, sizeof g_sandbox, "%s", inherited);
  } else {
    std::string templ = std::filesystem::temp_directory_path(error).string();
    const char separator = std::filesystem::path::preferred_separator;
    if (!templ.empty() && templ.back() != '/' && templ.back() != separator) templ += separator;
    templ += "krlport_test_XXXXXX";
    if (!make_unique_directory(templ)) {
      std::perror("krl_test_sandbox: cannot make the temporary directory");
      std::abort();  // no test may run without it: it would write outside
    }
    std::snprintf(g_sandbox, sizeof g_sandbox, "%s", templ.c_str());
    g_owner = process_id();
    set_variable(kSandboxVariable, g_sandbox);
    std::atexit(&remove_sandbox);
  }
  set_variable("KORLAN_ADM", g_sandbox);
}

struct EnterSandbox : ::testing::Environment {
  void SetUp() override {
    if (change_directory(g_sandbox) != 0) std::perror("krl_test_sandbox: chdir");
  }
};
::testing::Environment* const g_enter = ::testing::AddGlobalTestEnvironment(new EnterSandbox);

}  // namespace
