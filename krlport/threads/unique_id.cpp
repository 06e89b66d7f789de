#include "krlport/threads/unique_id.h"

#include "krlport/threads/mutex.h"

unsigned long KRLUniqueId::_globalId = 0;

namespace {

// Built at the first default construction; the language makes that first
// construction safe when two threads race to it, and registers the
// destructor to run at unload.
KRLMutex& counter_mutex() {
  static KRLMutex mutex;
  return mutex;
}

}  // namespace

KRLUniqueId::KRLUniqueId() {
  KRLMutex_var guard(counter_mutex(), 1);
  _id = _globalId++;
}
