// Per-thread slots on Win32 TLS. Each slot has a TLS index; the library's
// TLS callback frees the calling thread's blocks when a thread ends. The
// indices are never given back: code that runs late in the unload may still
// reach a slot, and would find another owner's index.
//
// The callback, not DllMain: the library's entry function turns thread
// notifications off, while TLS callbacks are called for every thread end
// regardless. A thread that is terminated gets no callback: its blocks stay,
// as everything else of such a thread does.
#include "krlport/platform/tls.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

#include "krlport/platform/atomic.h"

namespace krl_internal {
namespace {

// Indices taken so far; enough for every slot the library has.
constexpr int kMaxSlots = 8;
std::atomic<DWORD> g_indices[kMaxSlots];
std::atomic<int> g_slot_count{0};
std::atomic<long> g_blocks_alive{0};

// Takes an index for key, once, whichever thread gets there first.
DWORD index_of(ThreadSlotKey* key) {
  unsigned long known = atomic_load(&key->index_plus_one, MemoryOrder::kAcquire);
  if (known != 0) return static_cast<DWORD>(known - 1);
  const DWORD index = TlsAlloc();
  if (index == TLS_OUT_OF_INDEXES) return TLS_OUT_OF_INDEXES;
  unsigned long expected = 0;
  if (!atomic_compare_exchange(&key->index_plus_one, &expected,
                               static_cast<unsigned long>(index) + 1, false, MemoryOrder::kAcqRel,
                               MemoryOrder::kAcquire)) {
    TlsFree(index);  // another thread was first
    return static_cast<DWORD>(expected - 1);
  }
  const int n = g_slot_count.fetch_add(1);
  if (n < kMaxSlots) g_indices[n].store(index + 1);
  return index;
}

void free_own_blocks() {
  const int n = g_slot_count.load();
  for (int i = 0; i < n && i < kMaxSlots; ++i) {
    const DWORD plus_one = g_indices[i].load();
    if (plus_one == 0) continue;
    void* block = TlsGetValue(plus_one - 1);
    if (block == nullptr) continue;
    TlsSetValue(plus_one - 1, nullptr);
    std::free(block);
    g_blocks_alive.fetch_sub(1, std::memory_order_relaxed);
  }
}

void NTAPI on_tls_event(PVOID, DWORD reason, PVOID) {
  if (reason == DLL_THREAD_DETACH || reason == DLL_PROCESS_DETACH) free_own_blocks();
}

}  // namespace

void* thread_slot_block(ThreadSlotKey* key, std::size_t size) {
  const DWORD index = index_of(key);
  if (index == TLS_OUT_OF_INDEXES) return nullptr;
  void* block = TlsGetValue(index);
  if (block != nullptr) return block;
  block = std::calloc(1, size);
  if (block == nullptr) return nullptr;
  if (!TlsSetValue(index, block)) {
    std::free(block);
    return nullptr;
  }
  g_blocks_alive.fetch_add(1, std::memory_order_relaxed);
  return block;
}

long thread_slot_blocks_alive() { return g_blocks_alive.load(std::memory_order_relaxed); }

}  // namespace krl_internal

// Registered in the image's TLS directory (the .CRT$XL? array of callbacks
// that mingw-w64's start-up code sets up).
extern "C" __attribute__((section(".CRT$XLK"), used)) const PIMAGE_TLS_CALLBACK krl_tls_callback =
    krl_internal::on_tls_event;
