#include "krlport/platform/heap.h"

namespace krl_internal {

// A DLL calls operator new through an import thunk of its own image, and a
// program that links the library statically may define its own in that same
// image: the address alone does not tell them apart. Always go through
// operator new and delete.
bool global_new_is_malloc() { return false; }

}  // namespace krl_internal
