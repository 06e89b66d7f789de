#include "krlport/services/vdlogger.h"

#include <cstring>

#include "krlport/platform/fatal.h"
#include "krlport/platform/file.h"
#include "krlport/services/log_path.h"

namespace krl_internal {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

// Word of the mask table for the top nibble of a 32-bit mask; -1 for none.
int word_index(unsigned long mask) {
  switch (static_cast<std::uint32_t>(mask) >> 28) {
    case 0:
      return 0;
    case 1:
      return 1;
    case 2:
      return 2;
    case 4:
      return 3;
    case 8:
      return 4;
    default:
      return -1;
  }
}

}  // namespace

bool is_valid_debug_mask(unsigned long mask) { return word_index(mask) != -1; }

KRLDebugLogger::KRLDebugLogger()
    : _options(0),
      _max_size(kDefaultMaxSize),
      _record_count(0),
      _fd(-1),
      _file_name(nullptr),
      _stream(stdout),
      _open_pending(false),
      _in_record(false),
      _write_failed(false) {
  for (auto& word : _masks) word.store(0, kRelaxed);
}

KRLDebugLogger::KRLDebugLogger(const char* file) : KRLDebugLogger() { init(file, 1); }

KRLDebugLogger::~KRLDebugLogger() {
  if (_fd != -1) std::fclose(_stream);
  delete[] _file_name;
}

KRLDebugLogger& KRLDebugLogger::instance() { return _instance; }

int KRLDebugLogger::word_of(unsigned long mask) {
  const int i = word_index(mask);
  if (i == -1) assertion_failed("i != -1", "vdlogger.cpp", __LINE__);
  return i;
}

void KRLDebugLogger::forget_file() {
  if (_fd != -1) std::fclose(_stream);
  delete[] _file_name;
  _file_name = nullptr;
  _fd = -1;
  _stream = stdout;
  _open_pending = false;
}

// Unlike a plain reset of the fields, init also closes and frees what an
// earlier name left, so that it may be called on a logger in use.
void KRLDebugLogger::init(const char* file, unsigned long options) {
  KRLMutex_var guard(_lock, 1);
  forget_file();
  if (file != nullptr) set_file(file);
  for (auto& word : _masks) word.store(0, kRelaxed);
  _record_count = 0;
  _in_record = false;
  _options.store(options, kRelaxed);
  _max_size.store(kDefaultMaxSize, kRelaxed);
}

// Takes _lock so that the host may name the file while other threads record.
bool KRLDebugLogger::set_file(const char* file) {
  if (file == nullptr || file[0] == '\0') return false;
  KRLMutex_var guard(_lock, 1);
  if (_file_name != nullptr) return false;
  _file_name = new char[kMaxFileName + 1];
  std::strncpy(_file_name, file, kMaxFileName);
  _file_name[kMaxFileName] = '\0';
  _open_pending = true;
  return true;
}

// unsigned long is 32 bits on Windows: a limit of 4 GiB or more is cut to
// the largest, rather than wrapping round to a small one.
void KRLDebugLogger::set_max_size(unsigned long kibibytes) {
  constexpr unsigned long kLargest = ~0ul;
  if (kibibytes == 0) return;
  _max_size.store(kibibytes > (kLargest >> 10) ? kLargest : kibibytes << 10, kRelaxed);
}

void KRLDebugLogger::enable(unsigned long mask) {
  std::atomic<std::uint32_t>& word = _masks[word_of(mask)];
  KRLMutex_var guard(_lock, 1);
  word.fetch_or(static_cast<std::uint32_t>(mask), kRelaxed);
}

void KRLDebugLogger::disable(unsigned long mask) {
  std::atomic<std::uint32_t>& word = _masks[word_of(mask)];
  KRLMutex_var guard(_lock, 1);
  word.fetch_and(~static_cast<std::uint32_t>(mask), kRelaxed);
}

bool KRLDebugLogger::is_enabled(unsigned long mask) const {
  return (_masks[word_of(mask)].load(kRelaxed) & static_cast<std::uint32_t>(mask)) != 0;
}

void KRLDebugLogger::set_options(unsigned long bits) {
  KRLMutex_var guard(_lock, 1);
  _options.fetch_or(bits, kRelaxed);
}

void KRLDebugLogger::clear_options(unsigned long bits) {
  KRLMutex_var guard(_lock, 1);
  _options.fetch_and(~bits, kRelaxed);
}

unsigned long KRLDebugLogger::options() const { return _options.load(kRelaxed); }

void KRLDebugLogger::reset_options() {
  KRLMutex_var guard(_lock, 1);
  _options.store(1, kRelaxed);
}

// Appends, and keeps the file out of child processes. A regular file is for
// its owner only (0600); a device or pipe the host named keeps its mode.
void KRLDebugLogger::open_file() {
  _stream = open_for_append(_file_name);
  _open_pending = _stream == nullptr;
  if (_open_pending) {
    _fd = -1;
    return;
  }
  _fd = stream_descriptor(_stream);
  make_owner_only(_fd, _file_name);
}

// fclose releases the stream even when it reports an error (flushing
// failed), so the file counts as closed either way.
void KRLDebugLogger::close_file() {
  if (!_open_pending) std::fclose(_stream);
  _stream = nullptr;
  _open_pending = true;
  _fd = -1;
}

void KRLDebugLogger::roll_over() {
  if (_fd == -1 || (_options.load(kRelaxed) & 1) == 0) return;  // stdout never rolls over
  FileStatus status;
  if (!descriptor_status(_fd, status)) return;
  if (status.size < _max_size.load(kRelaxed)) return;
  // Room for the longest name and its "o", so that a backup name is never
  // cut back to the log's own name.
  char backup[kMaxFileName + 2];
  std::snprintf(backup, sizeof backup, "%so", _file_name);
  if (file_status(backup, status)) remove_file(backup);
  close_file();                     // before the rename: Windows renames no open file
  std::rename(_file_name, backup);  // on failure the file just goes on growing
  open_file();
}

KRLDebugLogger& KRLDebugLogger::begin_record(int tag, unsigned long mask, const char* source,
                                             int line) {
  const int word = word_of(mask);
  _lock.lock();
  if (_in_record) return *this;  // nested: the text joins the running record
  const std::uint32_t bits = static_cast<std::uint32_t>(mask);
  _write_failed = false;
  if ((_masks[word].load(kRelaxed) & bits) == 0 && (_masks[0].load(kRelaxed) & 1) == 0) {
    return *this;
  }
  _write_failed = true;  // until the head line is out
  if (_open_pending) open_file();
  if (_open_pending) return *this;  // no file: the record is dropped, the next one retries
  if (++_record_count >= kCheckEvery) {
    roll_over();
    _record_count = 0;
    if (_open_pending) return *this;  // the reopen after roll-over failed
  }
  const std::int64_t now = current_time_seconds();
  char when[32];
  local_time_text(now, when, sizeof when);
  _write_failed =
      std::fprintf(_stream, "=> %s,%02x,%08x,%s,%d,%d\n", when, static_cast<unsigned>(tag), bits,
                   source != nullptr ? source : "<null>", line, static_cast<int>(now)) < 0;
  _in_record = true;
  return *this;
}

KRLDebugLogger& KRLDebugLogger::operator<<(const char* text) {
  if (_in_record && std::fputs(text != nullptr ? text : "<null>", _stream) == EOF) {
    _write_failed = true;
  }
  return *this;
}

KRLDebugLogger& KRLDebugLogger::operator<<(long value) {
  if (_in_record && std::fprintf(_stream, "%ld", value) < 0) _write_failed = true;
  return *this;
}

KRLDebugLogger& end_record(KRLDebugLogger& log) {
  if (log._in_record) {
    // Buffered text meets a full disk only here, in the flush.
    if (std::fputc('\n', log._stream) == EOF) log._write_failed = true;
    if (std::fflush(log._stream) != 0) log._write_failed = true;
    log._in_record = false;
  }
  log._lock.unlock();
  return log;
}

bool KRLDebugLogger::record(int tag, unsigned long mask, const char* source, int line,
                            const char* text) {
  // Held across the record and the reading of its outcome, so that another
  // thread's record cannot change _write_failed in between.
  KRLMutex_var guard(_lock, 1);
  begin_record(tag, mask, source, line) << text << end_record;
  return !_write_failed;
}

bool debug_log_to(KRLDebugLogger& log, const char* file, char* path, unsigned int size) {
  if (file == nullptr || file[0] == '\0' || path == nullptr) return false;
  if (!log_file_path(file, path, size)) return false;
  if (std::strlen(path) > KRLDebugLogger::kMaxFileName || !log.set_file(path)) return false;
  log.set_options(1);
  return true;
}

}  // namespace krl_internal
