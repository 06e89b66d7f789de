// The exception descriptions at the two ends of the library's life: the
// DEBUG_STATIC trace of load, seen from a fresh run of this binary, and the
// registry after the terminators, seen from a forked child that exits.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "krlport/exceptions/registry.h"

extern char** environ;

namespace {

// Set only in a forked child; makes the probe below check the registry.
int check_registry_at_exit = 0;

constexpr int kRegistryEmpty = 42;
constexpr int kRegistryMissing = 43;
constexpr int kRegistryNotEmpty = 44;

// Constructed before the library's load-time objects (default priority), so
// its destructor runs after all of their terminators.
struct RegistryAtExitProbe {
  ~RegistryAtExitProbe() {
    if (check_registry_at_exit == 0) return;
    krl_internal::ExceptionRegistry* registry = krl_internal::exception_registry();
    if (registry == nullptr) _exit(kRegistryMissing);
    _exit(registry->_count == 0 ? kRegistryEmpty : kRegistryNotEmpty);
  }
};
__attribute__((init_priority(101))) RegistryAtExitProbe registry_at_exit_probe;

TEST(UnloadTest, AfterTheTerminatorsTheRegistryIsEmptyAndStillExists) {
  const pid_t pid = fork();
  ASSERT_NE(-1, pid);
  if (pid == 0) {
    check_registry_at_exit = 1;
    std::exit(0);
  }
  int status = 0;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(kRegistryEmpty, WEXITSTATUS(status));
}

struct ChildRun {
  std::string out;
  int status = -1;
};

// Runs this test binary again, listing no test, with DEBUG_STATIC removed from
// the environment and debug_static (if not null) added as its one entry.
ChildRun run_self(const char* debug_static) {
  std::vector<std::string> env;
  for (char** e = environ; *e != nullptr; ++e) {
    if (std::strncmp(*e, "DEBUG_STATIC=", 13) != 0) env.push_back(*e);
  }
  if (debug_static != nullptr) env.push_back(debug_static);
  std::vector<char*> envp;
  for (std::string& s : env) envp.push_back(&s[0]);
  envp.push_back(nullptr);
  char arg0[] = "exceptions_test";
  char arg1[] = "--gtest_list_tests";
  char arg2[] = "--gtest_filter=-*";
  char* argv[] = {arg0, arg1, arg2, nullptr};

  ChildRun run;
  int fds[2];
  if (pipe(fds) != 0) return run;
  const pid_t pid = fork();
  if (pid == -1) return run;
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    execve("/proc/self/exe", argv, envp.data());
    _exit(127);
  }
  close(fds[1]);
  char buf[4096];
  ssize_t n;
  while ((n = read(fds[0], buf, sizeof buf)) > 0) run.out.append(buf, static_cast<size_t>(n));
  close(fds[0]);
  waitpid(pid, &run.status, 0);
  return run;
}

// One traced Description: its own line and its base line.
struct Trace {
  std::string name, address, base_name, base_address;
  bool base_null = false;
};

std::vector<Trace> parse_traces(const std::string& out) {
  static const std::string kHead = "Statically initializing class: ";
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::vector<Trace> traces;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].compare(0, kHead.size(), kHead) != 0) continue;
    Trace t;
    const std::string rest = lines[i].substr(kHead.size());
    const size_t comma = rest.rfind(", ");
    t.name = rest.substr(0, comma);
    t.address = comma == std::string::npos ? "" : rest.substr(comma + 2);
    if (i + 3 < lines.size()) {
      EXPECT_EQ("The class has the following base:", lines[i + 1]) << t.name;
      const std::string& base = lines[i + 2];
      if (base == "(null)") {
        t.base_null = true;
      } else {
        const size_t base_comma = base.rfind(", ");
        t.base_name = base.substr(0, base_comma);
        t.base_address = base_comma == std::string::npos ? "" : base.substr(base_comma + 2);
      }
      EXPECT_EQ("", lines[i + 3]) << t.name;
    } else {
      ADD_FAILURE() << "trace of " << t.name << " is cut short";
    }
    traces.push_back(t);
  }
  return traces;
}

TEST(LoadTraceTest, DebugStaticTracesEachDescriptionInLoadOrder) {
  const ChildRun run = run_self("DEBUG_STATIC=1");
  ASSERT_TRUE(WIFEXITED(run.status));
  ASSERT_EQ(0, WEXITSTATUS(run.status));
  const std::vector<Trace> traces = parse_traces(run.out);

  std::vector<std::string> expected = {
#define KRL_SYSTEM_EXCEPTION(NAME) "CORBA::" #NAME,
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
      "CORBA::Exception", "CORBA::SystemException", "CORBA::UserException", "KRLRemarshal"};
  ASSERT_EQ(expected.size(), traces.size()) << run.out;
  for (size_t i = 0; i < traces.size(); ++i) {
    EXPECT_EQ(expected[i], traces[i].name);
    EXPECT_EQ(0u, traces[i].address.rfind("0x", 0)) << traces[i].name;
  }

  const Trace& exception = traces[36];
  const Trace& system = traces[37];
  const Trace& user = traces[38];
  const Trace& remarshal = traces[39];
  // The system exceptions come before their base: its storage is still zero.
  for (size_t i = 0; i < 36; ++i) {
    EXPECT_FALSE(traces[i].base_null) << traces[i].name;
    EXPECT_EQ("(null)", traces[i].base_name) << traces[i].name;
    EXPECT_EQ(system.address, traces[i].base_address) << traces[i].name;
  }
  EXPECT_TRUE(exception.base_null);
  EXPECT_EQ("CORBA::Exception", system.base_name);
  EXPECT_EQ(exception.address, system.base_address);
  EXPECT_EQ("CORBA::Exception", user.base_name);
  EXPECT_EQ(exception.address, user.base_address);
  EXPECT_EQ("CORBA::UserException", remarshal.base_name);
  EXPECT_EQ(user.address, remarshal.base_address);
}

TEST(LoadTraceTest, AnEmptyValueSwitchesTracingOnAndAbsenceLeavesItOff) {
  const ChildRun empty = run_self("DEBUG_STATIC=");
  ASSERT_TRUE(WIFEXITED(empty.status));
  EXPECT_EQ(0, WEXITSTATUS(empty.status));
  EXPECT_EQ(40u, parse_traces(empty.out).size());

  const ChildRun unset = run_self(nullptr);
  ASSERT_TRUE(WIFEXITED(unset.status));
  EXPECT_EQ(0, WEXITSTATUS(unset.status));
  EXPECT_EQ(std::string::npos, unset.out.find("Statically initializing class: ")) << unset.out;
}

}  // namespace
