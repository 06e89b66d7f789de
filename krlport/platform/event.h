// Internal: the one-shot event a thread sleeps on in one wait of a
// KRLCondition (CreateEvent, SetEvent, WaitForSingleObject, CloseHandle).
//
// An event is made for one wait and one waiter: the waiter constructs it,
// publishes its address, waits on it and destroys it; any thread may set it.
// Once set it stays set.
//
// Windows: a manual-reset event object, unnamed, made by the constructor and
// closed by the destructor. SetEvent holds its own reference to the object
// while it runs, so the waiter may close the handle once its wait has seen
// the event set, even while the setter is still inside set().
//
// Elsewhere: a single futex word, so it needs no system object: construction
// cannot fail, destruction closes nothing, and the event can live in the
// waiter's stack frame. set() changes the word with one atomic exchange and
// afterwards uses only the word's address, which it hands to FUTEX_WAKE. A
// wake of a private futex neither reads nor writes user memory, so the
// waiter may destroy the event as soon as it has seen the word set, even
// while the setter is still inside set(). If the memory is reused for another
// futex before the wake arrives, that futex sees a spurious wake-up, which
// every futex user tolerates (ours re-check their word, and so do glibc's;
// see futex(2), "spurious wake-ups").
//
// Before it sleeps, a wait polls the word for a short, bounded while
// (spin_polls()): a setter on another processor often comes within a
// microsecond or two, and then neither side makes a system call. The polls
// are plain loads without the processor's pause hint: under a hypervisor a
// pause loop makes the virtual processor give up its time slice (pause-loop
// exiting), which defeats the spin.
#ifndef KRLPORT_PLATFORM_EVENT_H_
#define KRLPORT_PLATFORM_EVENT_H_

#include <atomic>
#include <cstdint>

namespace krl_internal {

// The limit of a wait that never times out (INFINITE).
constexpr std::uint32_t kWaitForever = 0xFFFFFFFFu;

enum class EventWait { kSignalled, kTimedOut, kFailed };

// How many times a waiter polls for what it waits on (an event, or a lock
// that its waker is about to release) before it sleeps. Cheap after the
// first call. 0 where polling cannot help: a system with one processor,
// where nobody runs while the poller polls, and Windows, whose waits go
// through the system's event objects and critical sections.
int spin_polls();

class Event {
 public:
  // Not set. Only on Windows can it fail: then ok() is false, errno holds
  // the system's error number, and the event may only be destroyed.
  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  bool ok() const;

  // Sets the event and wakes its waiter if it sleeps. Safe from any thread;
  // see the note on lifetime above.
  void set();

  // Blocks the owning thread until the event is set or limit_ms milliseconds
  // have passed on a monotonic clock; kWaitForever never times out and 0
  // only tests. A signal to the thread does not end the wait early. A set
  // that meets the time-out counts as signalled. kFailed leaves the system's
  // error number in errno.
  EventWait wait(std::uint32_t limit_ms);

  // As wait, and meanwhile receives the calling thread's window messages and
  // dispatches them (MsgWaitForMultipleObjects with all input, then
  // PeekMessageA, TranslateMessage and DispatchMessageA until none is left).
  // Each batch of messages starts the full limit again. Where threads have
  // no message queue, it is wait.
  EventWait wait_pumping(std::uint32_t limit_ms);

 private:
#ifdef _WIN32
  void* _handle;  // the event object; null if it could not be made
#else
  // kClear: not set, nobody sleeps. kSleeping: not set, the waiter sleeps or
  // is about to, so set() must wake it. kSet: set; final.
  static constexpr std::uint32_t kClear = 0;
  static constexpr std::uint32_t kSet = 1;
  static constexpr std::uint32_t kSleeping = 2;

  std::atomic<std::uint32_t> _word;
#endif
};

#ifndef _WIN32

inline Event::Event() : _word(kClear) {}
inline Event::~Event() {}
inline bool Event::ok() const { return true; }
inline EventWait Event::wait_pumping(std::uint32_t limit_ms) { return wait(limit_ms); }

// Internal, for tests: an absolute time on the monotonic clock, laid out as
// the system's own (seconds, nanoseconds).
struct EventDeadline {
  long long seconds;
  long long nanoseconds;
};

// Internal, for tests: the call that puts a waiter to sleep while *word is
// still `expected`, until the monotonic time *deadline, or for good if
// deadline is null. Returns 0, or -1 with errno as FUTEX_WAIT_BITSET gives it
// (EAGAIN, EINTR and ETIMEDOUT are expected; anything else fails the wait).
using EventSleepCall = int (*)(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                               const EventDeadline* deadline);
// The futex call itself.
int event_futex_sleep(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                      const EventDeadline* deadline);
// Makes waits sleep through call (null restores event_futex_sleep) and gives
// the previous one. Set it only while no wait runs.
EventSleepCall set_event_sleep_call(EventSleepCall call);

#endif  // !_WIN32

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_EVENT_H_
