// Both ends of the library's life: the DEBUG_STATIC trace of load, seen from a
// fresh run of this binary, and the registry after the terminators, from a child.
#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "krlport/exceptions/registry.h"

namespace {

int check_registry_at_exit = 0;  // set only in the child of the death test

// Built before the library's load-time objects, so destroyed after all of them.
struct RegistryAtExitProbe {
  ~RegistryAtExitProbe() {
    if (check_registry_at_exit == 0) return;
    const krl_internal::ExceptionRegistry* registry = krl_internal::exception_registry();
    std::_Exit(registry != nullptr && registry->_count == 0 ? 42 : 43);
  }
};
__attribute__((init_priority(101))) RegistryAtExitProbe registry_at_exit_probe;

TEST(UnloadTest, AfterTheTerminatorsTheRegistryIsEmptyAndStillExists) {
  EXPECT_EXIT((check_registry_at_exit = 1, std::exit(0)), testing::ExitedWithCode(42), "");
}

#if defined(_WIN32)
// This program, run again through the command processor with the environment
// this process has; value null unsets DEBUG_STATIC for the child.
FILE* run_self_with(const char* value) {
  char self[MAX_PATH] = "";
  ::GetModuleFileNameA(nullptr, self, sizeof self);
  ::SetEnvironmentVariableA("DEBUG_STATIC", value);
  // cmd /c drops the outer pair of quotes of a line that begins with one.
  const std::string cmd = "\"\"" + std::string(self) + "\" --gtest_list_tests --gtest_filter=-*\"";
  FILE* pipe = _popen(cmd.c_str(), "r");
  ::SetEnvironmentVariableA("DEBUG_STATIC", nullptr);
  return pipe;
}
int close_pipe(FILE* pipe) { return _pclose(pipe); }
#else
FILE* run_self_with(const char* value) {
  const std::string assignment = value != nullptr ? std::string("DEBUG_STATIC=") + value : "";
  const std::string cmd = "env -u DEBUG_STATIC " + assignment + " '" +
                          std::filesystem::read_symlink("/proc/self/exe").string() +
                          "' --gtest_list_tests --gtest_filter=-*";
  return popen(cmd.c_str(), "r");
}
int close_pipe(FILE* pipe) { return pclose(pipe); }
#endif

// What this binary prints, addresses masked, when run again with DEBUG_STATIC
// set to value (unset if null) instead of any DEBUG_STATIC, running no test.
std::string run_self(const char* value) {
  FILE* pipe = run_self_with(value);
  std::string out;
  if (pipe == nullptr) return out;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  EXPECT_EQ(0, close_pipe(pipe));
  for (size_t at = out.find("0x"); at != std::string::npos; at = out.find("0x", at + 4)) {
    out.replace(at, out.find_first_not_of("0123456789abcdef", at + 2) - at, "ADDR");
  }
  return out;
}

TEST(LoadTraceTest, DebugStaticTracesEachDescriptionAndItsBaseInLoadOrder) {
  const std::string head = "Statically initializing class: ";
  std::string expected;
  auto trace = [&](const std::string& name, const std::string& base) {
    expected += head + name + ", ADDR\nThe class has the following base:\n" + base + "\n\n";
  };
  // The load error and the system exceptions come before their bases, whose
  // storage is still zero.
  trace("KRLLoadLibrary::LoadError", "(null), ADDR");
#define KRL_SYSTEM_EXCEPTION(NAME) trace("CORBA::" #NAME, "(null), ADDR");
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
  trace("CORBA::Exception", "(null)");
  trace("CORBA::SystemException", "CORBA::Exception, ADDR");
  trace("CORBA::UserException", "CORBA::Exception, ADDR");
  trace("KRLRemarshal", "CORBA::UserException, ADDR");
  for (const char* value : {"1", ""}) {  // any value will do, the empty one too
    const std::string out = run_self(value);
    EXPECT_EQ(expected, out.substr(0, expected.size())) << "DEBUG_STATIC=" << value;
    EXPECT_EQ(std::string::npos, out.find(head, expected.size())) << "DEBUG_STATIC=" << value;
  }
  EXPECT_EQ(std::string::npos, run_self(nullptr).find(head));
}

}  // namespace
