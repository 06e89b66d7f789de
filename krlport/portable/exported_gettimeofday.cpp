// The plain gettimeofday the library exports on Windows, whose C library has
// none of its own; built only there (on Linux the C library's own has the same
// meaning, and a second definition would replace it for the whole process).
// Hosts declare it themselves; mingw-w64's <sys/time.h> has this signature.
#include "krlport/frame/export.h"
#include "krlport/portable/portable.h"

extern "C" KRL_EXPORT int gettimeofday(timeval* tv, void* /* ignored */) {
  KRLPortable::gettimeofday(*tv);
  return 0;
}
