/// @file
/// KRLDebugLog: the host's way into the library's debug logger, whose class
/// stays internal. The host names the log's file, switches masks on and off,
/// and writes whole records; code inside the library writes to the same log.
///
/// A record is a head line
///   "=> <ctime text>,<tag %02x>,<mask %08x>,<source>,<line>,<time in seconds>"
/// followed by its text and a newline. Without a file the log goes to
/// standard output. Nothing is enabled at load.
///
/// Masks are 32-bit: the top four bits must be 0, 1, 2, 4 or 8 and choose one
/// of five words; a record passes when its mask shares a bit with its word's
/// enabled pattern, top bits included, or when mask 0x00000001 is enabled.
/// The operations return 0 for any other mask and change nothing.
#ifndef KRLPORT_SERVICES_DEBUG_LOG_H_
#define KRLPORT_SERVICES_DEBUG_LOG_H_

#include "krlport/frame/export.h"

/// The host's way into the debug log; static members only. See the file
/// description for the record format and the masks.
class KRL_EXPORT KRLDebugLog {
 public:
  /// Sends the log to file, placed like KRLLogger's files (below KORLAN_ADM,
  /// else below the root of the current drive, else in the current
  /// directory), appending, owner-only (0600), and switches
  /// roll-over on: every 500th record checks the size, and a file of 1 MiB or
  /// more becomes "<path>o", replacing the older backup. path (size chars)
  /// receives the path, also on most failures. Returns 1, or 0 when the path
  /// does not fit in size or is over 1024 characters, or when the log has a
  /// file already (one per process). The file is opened at the first record.
  /// Call it before other threads look up properties (BaseUtil::GetProperty).
  static int log_to(const char* file, char* path, unsigned int size);

  ///@{
  /// Switch mask on or off. Wait for a running record. Safe from any thread.
  /// Return 1, or 0 for an invalid mask.
  static int enable(unsigned long mask);
  static int disable(unsigned long mask);
  ///@}

  /// Writes one record, whole, with text (may be null) as its body, when mask
  /// passes the filter. Returns 1 when it was written and flushed, and also
  /// when it is filtered out; 0 when it was not written (no file could be
  /// opened, a write or the flush failed, as on a full disk) or mask is
  /// invalid. Safe from any thread: records of different threads never mix.
  static int record(int tag, unsigned long mask, const char* source, int line, const char* text);

 private:
  KRLDebugLog();
};

#endif  // KRLPORT_SERVICES_DEBUG_LOG_H_
