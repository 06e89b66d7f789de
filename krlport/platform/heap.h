// Internal OS layer: what the global operator new and delete are. Internal:
// used by the string allocator.
#ifndef KRLPORT_PLATFORM_HEAP_H_
#define KRLPORT_PLATFORM_HEAP_H_

namespace krl_internal {

// True if the global operator new(std::size_t) and operator delete(void*)
// that this library's calls reach are the C++ runtime's own (libstdc++):
// malloc behind the new-handler loop, and free. Then a block from malloc may
// go to operator delete and one from operator new to free. False if the
// program or a preloaded library (a sanitizer, another allocator) replaced
// either, and wherever this cannot be told. The answer does not change during
// the life of the process. Safe from any thread; it looks, so cache it.
bool global_new_is_malloc();

}  // namespace krl_internal

#endif  // KRLPORT_PLATFORM_HEAP_H_
