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
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

constexpr const char* kSandboxVariable = "KRLPORT_TEST_SANDBOX";

// Plain data: constant-initialised, so no later initialiser resets them.
char g_sandbox[PATH_MAX];
pid_t g_owner = 0;  // the process that made it; 0 when inherited

void remove_sandbox() {
  if (g_owner != ::getpid()) return;  // a forked child exits through here too
  std::error_code ignored;
  std::filesystem::remove_all(g_sandbox, ignored);
}

__attribute__((constructor(101))) void make_sandbox() {
  std::error_code error;
  const char* const inherited = std::getenv(kSandboxVariable);
  if (inherited != nullptr && std::filesystem::is_directory(inherited, error)) {
    std::snprintf(g_sandbox, sizeof g_sandbox, "%s", inherited);
  } else {
    std::string templ = std::filesystem::temp_directory_path(error).string();
    templ += (templ.empty() || templ.back() != '/' ? "/" : "") + std::string("krlport_test_XXXXXX");
    if (::mkdtemp(&templ[0]) == nullptr) {
      std::perror("krl_test_sandbox: mkdtemp");
      std::abort();  // no test may run without it: it would write outside
    }
    std::snprintf(g_sandbox, sizeof g_sandbox, "%s", templ.c_str());
    g_owner = ::getpid();
    ::setenv(kSandboxVariable, g_sandbox, 1);
    std::atexit(&remove_sandbox);
  }
  ::setenv("KORLAN_ADM", g_sandbox, 1);
}

struct EnterSandbox : ::testing::Environment {
  void SetUp() override {
    if (::chdir(g_sandbox) != 0) std::perror("krl_test_sandbox: chdir");
  }
};
::testing::Environment* const g_enter = ::testing::AddGlobalTestEnvironment(new EnterSandbox);

}  // namespace
