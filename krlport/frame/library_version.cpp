#include "krlport/frame/library_version.h"

// The macros as they were when the library was compiled: the library's own
// release, whatever headers the host uses.
void krlport_version(int* major, int* minor, int* patch) noexcept {
  if (major != nullptr) *major = KRLPORT_VERSION_MAJOR;
  if (minor != nullptr) *minor = KRLPORT_VERSION_MINOR;
  if (patch != nullptr) *patch = KRLPORT_VERSION_PATCH;
}
