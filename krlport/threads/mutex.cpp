#include "krlport/threads/mutex.h"

#include "krlport/threads/mutex_internal.h"

#include "krlport/platform/fatal.h"
#include "krlport/portable/base_util.h"

unsigned char KRLMutex::_inShutdown = 0;

KRLMutex::KRLMutex() { krl_internal::lock_init(krl_internal::lock_room(_cs)); }

KRLMutex::~KRLMutex() {
  if (_inShutdown == 0) krl_internal::lock_destroy(krl_internal::lock_room(_cs));
}

void KRLMutex::lock() { krl_internal::lock_acquire(krl_internal::lock_room(_cs)); }
void KRLMutex::unlock() { krl_internal::lock_release(krl_internal::lock_room(_cs)); }
void KRLMutex::v_lock() { krl_internal::lock_acquire(krl_internal::lock_room(_cs)); }
void KRLMutex::v_unlock() { krl_internal::lock_release(krl_internal::lock_room(_cs)); }

void KRLMutex::shutdown() {
  vsysinfo* info = BaseUtil::get_sysversion();
  // No version, no reason to change the flag.
  if (info != nullptr && (info->major == 95 || info->major == 98)) _inShutdown = 1;
  delete info;
}

namespace krl_internal {

struct MutexAccess {
  static LockRoom* lock(KRLMutex& m) { return lock_room(m._cs); }
  static unsigned char& shutdown_flag() { return KRLMutex::_inShutdown; }
};

LockRoom* lock_of(KRLMutex& m) { return MutexAccess::lock(m); }
unsigned char mutex_shutdown_flag() { return MutexAccess::shutdown_flag(); }
void set_mutex_shutdown_flag(unsigned char flag) { MutexAccess::shutdown_flag() = flag; }

}  // namespace krl_internal

KRLIMutex_var::KRLIMutex_var(KRLIMutex* mtx, unsigned char release_flag)
    : _mtx(mtx), _release(release_flag) {
  _mtx->v_lock();
}

KRLIMutex_var::~KRLIMutex_var() {
  if (_release != 0) _mtx->v_unlock();
}

void KRLIMutex_var::lock() {
  _mtx->v_lock();
  _release = 1;
}

void KRLIMutex_var::unlock() {
  _release = 0;
  _mtx->v_unlock();
}

KRLIMutex_var& KRLIMutex_var::operator=(const KRLIMutex_var& v) {
  _mtx = v._mtx;
  _release = v._release;
  return *this;
}

KRLMutex_var::KRLMutex_var(KRLMutex& mtx, unsigned char release_flag)
    : _mtx(mtx), _release(release_flag) {
  _mtx.lock();
}

KRLMutex_var::~KRLMutex_var() {
  if (_release != 0) _mtx.unlock();
}

void KRLMutex_var::lock() {
  _mtx.lock();
  _release = 1;
}

void KRLMutex_var::unlock() {
  _mtx.unlock();
  _release = 0;
}

KRLDMutex_var::KRLDMutex_var(KRLMutex* mtx, unsigned char release_flag)
    : _mtx(mtx), _release(release_flag) {
  if (_mtx != nullptr) _mtx->lock();
}

KRLDMutex_var::~KRLDMutex_var() {
  if (_mtx != nullptr && _release != 0) _mtx->unlock();
}

void KRLDMutex_var::set(KRLMutex* mtx) {
  // The text, file name and line are the ones the host's tools know.
  if (_mtx != nullptr) krl_internal::assertion_failed("_mtx == (KRLMutex *)NULL", "vthread", 247);
  if (mtx == nullptr) return;
  _mtx = mtx;
  _mtx->lock();
}

void KRLDMutex_var::unlock() {
  if (_mtx == nullptr) return;
  _mtx->unlock();
  _release = 0;
}
