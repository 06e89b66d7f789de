#include "krlport/platform/thread.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "krlport/platform/tls.h"
#include "krlport/threads/thread_test_peers.h"

namespace {

using krl_test::eventually;

// Each thread has its own slot, zero at its start.
struct Probe {
  int value;
};

TEST(ThreadSlotTest, EachThreadHasItsOwnZeroedSlot) {
  Probe* mine = krl_internal::ThreadSlot<Probe>::get();
  ASSERT_NE(mine, nullptr);
  mine->value = 7;
  int seen = -1;
  Probe* other = nullptr;
  std::thread([&] {
    other = krl_internal::ThreadSlot<Probe>::get();
    seen = other->value;
    other->value = 9;
  }).join();
  EXPECT_NE(other, mine);
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(krl_internal::ThreadSlot<Probe>::get()->value, 7);
#ifdef _WIN32
  // The ended thread's block went back when it ended.
  const long alive = krl_internal::thread_slot_blocks_alive();
  std::thread([] { krl_internal::ThreadSlot<Probe>::get()->value = 1; }).join();
  EXPECT_EQ(krl_internal::thread_slot_blocks_alive(), alive);
#endif
}

// Runs on a thread made by start_detached_thread.
std::atomic<unsigned long> g_started_id{0};
void* note_own_id(void* arg) {
  g_started_id = krl_internal::current_thread_id();
  static_cast<std::atomic<bool>*>(arg)->store(true);
  return nullptr;
}

TEST(StartDetachedThreadTest, RunsStartWithArgOnANewThreadOfAnyStackSize) {
  for (unsigned long stack : {0ul, 1ul, 1ul << 20}) {
    std::atomic<bool> done{false};
    g_started_id = 0;
    ASSERT_EQ(krl_internal::start_detached_thread(stack, &note_own_id, &done), 0);
    EXPECT_TRUE(eventually([&] { return done.load(); }));
    EXPECT_NE(g_started_id, 0u);
    EXPECT_NE(g_started_id, krl_internal::current_thread_id());
  }
}

#ifdef _WIN32

// A thread that accepts g_point and spins, or, with g_refuse, refuses it
// first and then spins. All in static storage: the thread may end at once.
krl_internal::TerminationPoint g_point;
std::atomic<bool> g_refuse{false}, g_ready{false};
std::atomic<long> g_spins{0};

DWORD WINAPI accept_and_spin(void*) {
  krl_internal::termination_begin(&g_point);
  krl_internal::termination_accept(&g_point);
  if (g_refuse) krl_internal::termination_refuse(&g_point);
  g_ready = true;
  for (;;) ++g_spins;
}

HANDLE start_spinner(bool refuse) {
  g_refuse = refuse;
  g_ready = false;
  HANDLE h = CreateThread(nullptr, 0, &accept_and_spin, nullptr, 0, nullptr);
  for (int i = 0; i < 10000 && !g_ready; ++i) Sleep(1);
  return h;
}

TEST(TerminationTest, TerminateThreadEndsOnlyAThreadThatAccepts) {
  HANDLE refused = start_spinner(true);
  ASSERT_NE(refused, nullptr);
  EXPECT_FALSE(krl_internal::termination_send(&g_point));
  EXPECT_EQ(WaitForSingleObject(refused, 50), static_cast<DWORD>(WAIT_TIMEOUT));
  TerminateThread(refused, 1);
  WaitForSingleObject(refused, INFINITE);
  CloseHandle(refused);

  HANDLE accepted = start_spinner(false);
  ASSERT_NE(accepted, nullptr);
  EXPECT_TRUE(krl_internal::termination_send(&g_point));
  EXPECT_EQ(WaitForSingleObject(accepted, 10000), WAIT_OBJECT_0);
  CloseHandle(accepted);
}

#else

unsigned long kernel_id() { return static_cast<unsigned long>(syscall(SYS_gettid)); }

// Other threads' ids are checked where the thread tests hand them to the
// system; here a forked child's, which must not be its parent's.
TEST(CurrentThreadIdTest, IsTheKernelIdOfAForkedChild) {
  EXPECT_EQ(krl_internal::current_thread_id(), kernel_id());
  const pid_t child = fork();
  if (child == 0) _exit(krl_internal::current_thread_id() == kernel_id() ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);  // exited with 0
}

// A thread that passed through g_ended (a run that is over), accepted g_live
// and answers pings, so the test knows that a signal sent before the ping has
// been handled. All in static storage: the thread ends without telling the
// sanitizers.
krl_internal::TerminationPoint g_ended, g_live;
std::atomic<unsigned long> g_tid{0};
std::atomic<int> g_ping{0}, g_pong{0}, g_host_calls{0};

void answer_pings() {
  krl_internal::termination_begin(&g_ended);
  krl_internal::termination_accept(&g_ended);
  krl_internal::termination_refuse(&g_ended);
  krl_internal::termination_end(&g_ended);
  krl_internal::termination_begin(&g_live);
  krl_internal::termination_accept(&g_live);
  g_tid = krl_internal::current_thread_id();
  for (;;) {
    g_pong = g_ping.load();
    krl_internal::sleep_milliseconds(1);
  }
}

bool answers() {
  const int ping = ++g_ping;
  return eventually([&] { return g_pong == ping; });
}

bool exists(unsigned long tid) {
  struct stat st;
  return ::stat(("/proc/self/task/" + std::to_string(tid)).c_str(), &st) == 0;
}

TEST(TerminationTest, EndsOnlyTheRunThatAcceptedTheTokenAndPassesOtherSignalsOn) {
  const int sig = krl_internal::termination_signal();
  struct sigaction host;
  std::memset(&host, 0, sizeof host);
  host.sa_sigaction = [](int, siginfo_t*, void*) { ++g_host_calls; };
  host.sa_flags = SA_SIGINFO;
  ASSERT_EQ(sigaction(sig, &host, nullptr), 0);

  std::thread(&answer_pings).detach();
  ASSERT_TRUE(eventually([] { return g_tid != 0; }));
  const unsigned long tid = g_tid;

  ASSERT_TRUE(krl_internal::termination_send(&g_ended));
  EXPECT_TRUE(answers());
  EXPECT_EQ(g_host_calls, 0);  // the library's own signal: dropped

  siginfo_t foreign;
  std::memset(&foreign, 0, sizeof foreign);
  foreign.si_code = SI_QUEUE;
  foreign.si_pid = getpid();
  foreign.si_value.sival_int = 7;
  ASSERT_EQ(syscall(SYS_rt_tgsigqueueinfo, getpid(), tid, sig, &foreign), 0);
  EXPECT_TRUE(answers());
  EXPECT_EQ(g_host_calls, 1);

  ASSERT_TRUE(krl_internal::termination_send(&g_live));
  EXPECT_TRUE(eventually([&] { return !exists(tid); }));
}

#endif  // _WIN32

}  // namespace
