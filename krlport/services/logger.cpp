#include "krlport/services/logger.h"

#include "krlport/services/logger_internal.h"

#include <atomic>
#include <fstream>
#include <iostream>
#include <new>

#include "krlport/frame/at_unload.h"
#include "krlport/platform/file.h"
#include "krlport/services/log_path.h"

namespace krl_internal {
namespace {

// The instance: raw static storage, zero at load, built at first use. The
// flag goes up when the building starts.
alignas(KRLLogger) unsigned char _logger_storage[sizeof(KRLLogger)];
std::atomic<bool> _logger_made{false};

// A new stream on path, emptied; null when it can't be made or opened.
// The stream object and its file buffer both come from operator new. When
// either fails, the new-expression gives the object's memory back, and the
// unwinding through the stream's members closes a file already opened.
std::ofstream* open_log_file(const char* path) {
  std::ofstream* stream;
  try {
    stream = new std::ofstream(path, std::ios::out);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  if (stream->rdstate() != 0) {
    delete stream;
    return nullptr;
  }
  return stream;
}

}  // namespace
}  // namespace krl_internal

KRLLogger::KRLLogger()
    : _out(nullptr), _err(nullptr), _log(nullptr), _out_owned(0), _err_owned(0), _log_owned(0) {
  // One path of the system: 260 on Windows, PATH_MAX on Linux, where a deep
  // KORLAN_ADM must still fit.
  char path[krl_internal::kPathBufferSize];
  log_to("krlout.log", path, sizeof path, 1);
  log_to("krlerr.log", path, sizeof path, 2);
  log_to("krllog.log", path, sizeof path, 4);
}

KRLLogger::~KRLLogger() { release(); }

KRLLogger* KRLLogger::storage() {
  return reinterpret_cast<KRLLogger*>(krl_internal::_logger_storage);
}

KRLLogger& KRLLogger::instance() {
  if (krl_internal::_logger_made.load(std::memory_order_acquire)) return *storage();
  // The flag first: the constructor comes back here through replace_out and
  // its like, and must get this same object.
  // The constructor cannot fail: a file that cannot be opened, or whose
  // stream cannot be allocated, leaves its slot empty and nothing open.
  krl_internal::_logger_made.store(true, std::memory_order_relaxed);
  new (krl_internal::_logger_storage) KRLLogger();
  // Publishes the built object to callers on threads that come later.
  krl_internal::_logger_made.store(true, std::memory_order_release);
  krl_internal::run_at_unload<&KRLLogger::terminate>();
  return *storage();
}

// Runs at exit (at unload for the shared library). The object stays in
// place with empty slots, so that a later caller falls back to the standard
// streams instead of reaching a deleted one.
void KRLLogger::terminate() { storage()->release(); }

void KRLLogger::release() {
  // Work on copies of the flags so that a stream shared by slots is deleted
  // through one of them only.
  int out_owned = _out_owned;
  int err_owned = _err_owned;
  int log_owned = _log_owned;
  if (err_owned != 0 && out_owned != 0 && _err == _out) err_owned = 0;
  if (log_owned != 0 && ((out_owned != 0 && _log == _out) || (err_owned != 0 && _log == _err))) {
    log_owned = 0;
  }
  if (out_owned != 0) delete _out;
  if (err_owned != 0) delete _err;
  if (log_owned != 0) delete _log;
  _out = _err = _log = nullptr;
  _out_owned = _err_owned = _log_owned = 0;
}

namespace krl_internal {

struct LoggerAccess {
  static bool holds(const KRLLogger& l, const std::ostream& stream) {
    return &stream == l._out || &stream == l._err || &stream == l._log;
  }
};

bool is_log_stream(const std::ostream& stream) {
  return LoggerAccess::holds(KRLLogger::instance(), stream);
}

}  // namespace krl_internal

std::ostream& KRLLogger::out() {
  KRLLogger& l = instance();
  return l._out != nullptr ? *l._out : std::cout;
}

std::ostream& KRLLogger::err() {
  KRLLogger& l = instance();
  return l._err != nullptr ? *l._err : std::cerr;
}

std::ostream& KRLLogger::log() {
  KRLLogger& l = instance();
  return l._log != nullptr ? *l._log : std::clog;
}

void KRLLogger::put(std::ostream*& slot, int& slot_owned, std::ostream* stream, int owned,
                    bool keep) {
  std::ostream* const old = slot;
  const int old_owned = slot_owned;
  slot = stream;
  slot_owned = owned;
  if (old == nullptr || old == stream || old_owned == 0) return;
  // Another slot that shares the old stream keeps it and now owns it.
  if (_out == old) {
    _out_owned = 1;
  } else if (_err == old) {
    _err_owned = 1;
  } else if (_log == old) {
    _log_owned = 1;
  } else if (!keep) {
    delete old;
  }
  // keep: the old stream is the host's again, open, to delete or to put back
  // into a slot. The logger no longer knows it.
}

void KRLLogger::replace_out(std::ostream& stream, int owned) {
  KRLLogger& l = instance();
  l.put(l._out, l._out_owned, &stream, owned, false);
}

void KRLLogger::replace_err(std::ostream& stream, int owned) {
  KRLLogger& l = instance();
  l.put(l._err, l._err_owned, &stream, owned, false);
}

void KRLLogger::replace_log(std::ostream& stream, int owned) {
  KRLLogger& l = instance();
  l.put(l._log, l._log_owned, &stream, owned, false);
}

void KRLLogger::replace_stream(const char* file, char selector) {
  if (file == nullptr) return;
  std::ofstream* stream = krl_internal::open_log_file(file);
  if (stream == nullptr) return;
  // One slot only, tested in the order out, log, err.
  if ((selector & 1) != 0) {
    put(_out, _out_owned, stream, 1, true);
  } else if ((selector & 4) != 0) {
    put(_log, _log_owned, stream, 1, true);
  } else if ((selector & 2) != 0) {
    put(_err, _err_owned, stream, 1, true);
  } else {
    delete stream;  // no slot selected
  }
}

int KRLLogger::log_to(const char* file, char* path, unsigned int size, char selector) {
  if (file == nullptr || path == nullptr) return 0;
  std::ofstream* stream = nullptr;
  try {
    // The property look-up may allocate too.
    if (!krl_internal::log_file_path(file, path, size)) return 0;
    stream = krl_internal::open_log_file(path);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  if (stream == nullptr) return 0;
  if ((selector & 7) == 0) {
    delete stream;  // the file is emptied, no slot filled
    return 1;
  }
  if ((selector & 1) != 0) replace_out(*stream, 1);
  if ((selector & 2) != 0) replace_err(*stream, 1);
  if ((selector & 4) != 0) replace_log(*stream, 1);
  return 1;
}
