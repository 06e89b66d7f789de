// Thread identity, sleeping, thread start and forced termination on Win32.
#include "krlport/platform/thread.h"

#include <windows.h>

#include <atomic>
#include <new>

namespace krl_internal {

unsigned long current_thread_id() { return GetCurrentThreadId(); }

void debug_break() { DebugBreak(); }

void yield_processor() { Sleep(0); }

// Sleep takes at most INFINITE - 1 milliseconds at a time; INFINITE itself
// would never return.
void sleep_milliseconds(unsigned long long ms) {
  constexpr unsigned long long kChunk = INFINITE - 1;
  while (ms > kChunk) {
    Sleep(static_cast<DWORD>(kChunk));
    ms -= kChunk;
  }
  Sleep(static_cast<DWORD>(ms));
}

namespace {

struct StartBlock {
  void* (*start)(void*);
  void* arg;
};

DWORD WINAPI run_start_block(void* p) {
  const StartBlock block = *static_cast<StartBlock*>(p);
  delete static_cast<StartBlock*>(p);
  block.start(block.arg);
  return 0;
}

}  // namespace

// The system rounds the stack size up to its granularity itself. The handle
// is closed at once: the thread runs detached, and ids name it from then on.
int start_detached_thread(unsigned long stack_size, void* (*start)(void*), void* arg) {
  StartBlock* block = new (std::nothrow) StartBlock{start, arg};
  if (block == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
  DWORD tid = 0;
  HANDLE thread = CreateThread(nullptr, stack_size, &run_start_block, block, 0, &tid);
  if (thread == nullptr) {
    const DWORD err = GetLastError();
    delete block;
    return static_cast<int>(err);
  }
  CloseHandle(thread);
  return 0;
}

// Termination.
//
// TerminateThread cannot be held off the way a blocked signal can, so the
// point carries a state that the thread and its terminator change by
// compare-and-swap: only a terminator that moves it from kAccepting to
// kEnding calls TerminateThread, and a thread that finds kEnding when it
// wants to refuse waits there to be ended (or for a failed terminator to
// give it back). So a thread is never ended outside accept..refuse, where
// the caller holds none of its own locks.

namespace {

enum : int { kRefusing = 0, kAccepting = 1, kEnding = 2 };

struct WinPoint {
  std::atomic<int> state;
  DWORD tid;
};
static_assert(sizeof(WinPoint) <= sizeof(TerminationPoint) &&
                  alignof(WinPoint) <= alignof(TerminationPoint),
              "TerminationPoint holds the point");

WinPoint* win_point(TerminationPoint* p) { return reinterpret_cast<WinPoint*>(p->_room); }

}  // namespace

void termination_begin(TerminationPoint* p) {
  WinPoint* const w = new (p->_room) WinPoint;
  w->state.store(kRefusing, std::memory_order_relaxed);
  w->tid = GetCurrentThreadId();
}

void termination_accept(TerminationPoint* p) {
  win_point(p)->state.store(kAccepting, std::memory_order_release);
}

void termination_refuse(TerminationPoint* p) {
  WinPoint* const w = win_point(p);
  for (;;) {
    int expected = kAccepting;
    if (w->state.compare_exchange_strong(expected, kRefusing, std::memory_order_acq_rel)) return;
    if (expected == kRefusing) return;
    Sleep(1);  // kEnding: TerminateThread is under way
  }
}

void termination_end(TerminationPoint* p) { win_point(p)->~WinPoint(); }

bool termination_send(TerminationPoint* p) {
  WinPoint* const w = win_point(p);
  int expected = kAccepting;
  if (!w->state.compare_exchange_strong(expected, kEnding, std::memory_order_acq_rel)) return false;
  // The thread cannot leave before it refuses, which it cannot now: the id
  // names it.
  HANDLE thread = OpenThread(THREAD_TERMINATE, FALSE, w->tid);
  const bool ended = thread != nullptr && TerminateThread(thread, 0) != 0;
  if (thread != nullptr) CloseHandle(thread);
  if (!ended) w->state.store(kAccepting, std::memory_order_release);
  return ended;
}

void end_calling_thread() {
  for (;;) TerminateThread(GetCurrentThread(), 0);
}

int termination_signal() { return 0; }

}  // namespace krl_internal
