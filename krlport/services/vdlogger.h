// Internal: KRLDebugLogger, the library's filtered trace facility, and its
// one object, built at load as the last object of frame/load_order.cpp. The
// host reaches it only through KRLDebugLog (debug_log.h).
//
// A record is a head line
//   "=> <ctime text>,<tag %02x>,<mask %08x>,<source>,<line>,<time in seconds>"
// then the text given through operator<<, then one newline:
//
//   log.begin_record(tag, mask, __FILE__, __LINE__) << "n=" << 3L << end_record;
//
// Masks are 32-bit words: the top four bits (0, 1, 2, 4 or 8) choose one of
// five words of the mask table, and the whole mask is the pattern tested
// against that word. Bit 0 of word 0 lets every record through. Any other top
// nibble is a broken precondition and aborts with "i != -1".
//
// Output goes to standard output until a file is named; a file is opened,
// appending, at the first record that passes the filter. With option bit 0
// set, every 500th record that passes checks the file's size, and a file of
// _max_size bytes or more is renamed to "<name>o" (one backup generation)
// and started again.
#ifndef KRLPORT_SERVICES_VDLOGGER_H_
#define KRLPORT_SERVICES_VDLOGGER_H_

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "krlport/threads/mutex.h"

namespace krl_internal {

class KRLDebugLogger {
 public:
  // Longest file name kept; set_file cuts a longer one.
  static constexpr unsigned kMaxFileName = 1024;
  // Roll-over size at the start and after init: 1 MiB.
  static constexpr unsigned long kDefaultMaxSize = 0x100000;
  // Records that pass the filter between two size checks.
  static constexpr unsigned long kCheckEvery = 500;

  // No file (standard output), no mask enabled, options 0.
  KRLDebugLogger();
  // init(file, 1): roll-over on.
  explicit KRLDebugLogger(const char* file);
  // Closes the file if one is open. No record may be running.
  ~KRLDebugLogger();
  KRLDebugLogger(const KRLDebugLogger&) = delete;
  KRLDebugLogger& operator=(const KRLDebugLogger&) = delete;

  // The library's object. Safe from any thread after load.
  static KRLDebugLogger& instance();

  // Starts over: closes and forgets any file, clears the mask table, names
  // file (null: standard output), takes options, and the 1 MiB limit.
  void init(const char* file, unsigned long options);
  // Names the file, cut to kMaxFileName characters, without touching it.
  // False for a null or empty name, or when a name is already set (the first
  // stays).
  bool set_file(const char* file);
  // The roll-over size in KiB; 0 is ignored. Takes no lock.
  void set_max_size(unsigned long kibibytes);

  // Switch the pattern of mask on or off in its word; wait for a running
  // record. is_enabled takes no lock and ignores the pass-all bit.
  void enable(unsigned long mask);
  void disable(unsigned long mask);
  bool is_enabled(unsigned long mask) const;

  // Option bits (bit 0: roll-over). reset_options sets them to 1.
  void set_options(unsigned long bits);
  void clear_options(unsigned long bits);
  unsigned long options() const;
  void reset_options();

  // Takes the lock and keeps it on every way out, also when the record is
  // filtered out or nested in one of this thread's records: each call must be
  // matched by one end_record on the same thread. Writes the head line when
  // mask passes and no record is running. A nested record's text joins the
  // outer one; the first end_record ends both, and text after it is dropped.
  KRLDebugLogger& begin_record(int tag, unsigned long mask, const char* source, int line);
  // Inside a record write the text ("<null>" for null) or the number;
  // outside one they write nothing. The caller holds the lock.
  KRLDebugLogger& operator<<(const char* text);
  KRLDebugLogger& operator<<(long value);
  KRLDebugLogger& operator<<(KRLDebugLogger& (*manipulator)(KRLDebugLogger&)) {
    return manipulator(*this);
  }

  // Ends the running record (newline, flush), then gives back one level of
  // the lock taken by begin_record.
  friend KRLDebugLogger& end_record(KRLDebugLogger& log);

  // One whole record with text as its body. True when it was written and
  // flushed, or filtered out; false when it passed the filter but was not
  // written whole: no file could be opened, or a write or the flush failed
  // (a full disk). mask must be valid.
  bool record(int tag, unsigned long mask, const char* source, int line, const char* text);

 private:
  static KRLDebugLogger _instance;  // defined in frame/load_order.cpp

  // The index in _masks of mask's word; aborts for an invalid mask.
  static int word_of(unsigned long mask);
  // Caller holds _lock for the four below.
  void open_file();
  void close_file();
  void roll_over();
  void forget_file();

  KRLMutex _lock;  // held from begin_record to end_record
  // The fields a setter changes without _lock or a reader reads without it
  // are atomic; the rest are guarded by _lock.
  std::atomic<std::uint32_t> _masks[5];
  std::atomic<unsigned long> _options;
  std::atomic<unsigned long> _max_size;  // bytes
  unsigned long _record_count;           // records since the last size check
  int _fd;                               // -1: no file open
  char* _file_name;                      // owned, kMaxFileName + 1 bytes, or null
  FILE* _stream;                         // stdout, the open file, or null after a failed open
  bool _open_pending;                    // a named file is to be opened before the next write
  bool _in_record;                       // a head line is out and its record not ended
  bool _write_failed;                    // the last record to pass the filter was not written whole
};

KRLDebugLogger& end_record(KRLDebugLogger& log);

// True when the top four bits of mask choose a word of the mask table.
bool is_valid_debug_mask(unsigned long mask);

// Names file in the log directory search of KRLLogger as the log's file and
// switches roll-over on. path (size chars) receives the path. False when
// the path does not fit in size or is longer than kMaxFileName, or when log
// already has a file. Reads BaseUtil's property buffer.
bool debug_log_to(KRLDebugLogger& log, const char* file, char* path, unsigned int size);

}  // namespace krl_internal

#endif  // KRLPORT_SERVICES_VDLOGGER_H_
