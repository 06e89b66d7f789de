// Both ends of the library's life: the DEBUG_STATIC trace of load, seen from a
// fresh run of this binary, and the registry after the terminators, from a child.
#include <gtest/gtest.h>
#include <unistd.h>

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
    _exit(registry != nullptr && registry->_count == 0 ? 42 : 43);
  }
};
__attribute__((init_priority(101))) RegistryAtExitProbe registry_at_exit_probe;

TEST(UnloadTest, AfterTheTerminatorsTheRegistryIsEmptyAndStillExists) {
  EXPECT_EXIT((check_registry_at_exit = 1, std::exit(0)), testing::ExitedWithCode(42), "");
}

// What this binary prints, addresses masked, when run again with the environment
// entry assignment (nothing if empty) instead of any DEBUG_STATIC, running no test.
std::string run_self(const std::string& assignment) {
  const std::string cmd = "env -u DEBUG_STATIC " + assignment + " '" +
                          std::filesystem::read_symlink("/proc/self/exe").string() +
                          "' --gtest_list_tests --gtest_filter=-*";
  FILE* pipe = popen(cmd.c_str(), "r");
  std::string out;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  EXPECT_EQ(0, pclose(pipe));
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
  for (const char* assignment : {"DEBUG_STATIC=1", "DEBUG_STATIC="}) {  // any value will do
    const std::string out = run_self(assignment);
    EXPECT_EQ(expected, out.substr(0, expected.size())) << assignment;
    EXPECT_EQ(std::string::npos, out.find(head, expected.size())) << assignment;
  }
  EXPECT_EQ(std::string::npos, run_self("").find(head));
}

}  // namespace
