/// @file
/// KRLLogger: the process-wide holder of three output streams, out, err and
/// log, which the host writes to with the ordinary stream operators. The logger
/// adds nothing to what is written: no time stamp, level, format or rotation.
///
/// On first use it opens krlout.log, krlerr.log and krllog.log, each emptied,
/// in the first of these places where the directory exists or can be made:
/// on Windows %KORLAN_ADM%\\log\\, then X:\\korlan\\log\\ on the current drive X;
/// on Linux $KORLAN_ADM/log/, then /korlan/log/; else the current directory.
/// KORLAN_ADM is a property: the environment first, then the property store.
/// The host may put any stream of its own into a slot at any time.
///
/// Slots are selected by a bit mask: 1 out, 2 err, 4 log.
///
/// Ownership: a slot filled with owned != 0 holds a stream the logger deletes
/// when the last slot gives it up, or at exit. A stream that several slots
/// share is deleted once, and a slot never keeps a deleted stream.
///
/// No lock anywhere: the first call of instance() must not race with another
/// call, and a stream must not be replaced while another thread writes to it.
#ifndef KRLPORT_SERVICES_LOGGER_H_
#define KRLPORT_SERVICES_LOGGER_H_

#include <iosfwd>

#include "krlport/frame/export.h"

namespace krl_internal {
// Internal: reaches the logger's slots (krlport/services/logger_internal.h).
struct LoggerAccess;
}  // namespace krl_internal

/// The process-wide holder of the out, err and log streams; see the file
/// description for files, ownership and its lack of locks.
class KRL_EXPORT KRLLogger {
 public:
  /// Opens the three default files into the instance's slots (not into this
  /// object's, which stay empty unless this is the instance).
  KRLLogger();
  /// Deletes each owned stream of this object once and empties the slots.
  ~KRLLogger();
  KRLLogger(const KRLLogger&) = delete;
  KRLLogger& operator=(const KRLLogger&) = delete;

  /// The one logger, built at the first call; its streams are released at
  /// exit. The object itself is never destroyed, so a late caller at exit
  /// still finds it, with empty slots.
  static KRLLogger& instance();

  ///@{
  /// The instance's streams, whatever object these are called on. An empty
  /// slot (its file could not be opened, or the logger has ended) gives
  /// std::cout, std::cerr and std::clog in its place.
  std::ostream& out();
  std::ostream& err();
  std::ostream& log();
  ///@}

  ///@{
  /// Puts stream into the slot. The stream the slot held before is deleted
  /// if the logger owned it and no other slot holds it; a slot that shares it
  /// takes over its ownership. Giving the stream already in the slot only
  /// changes its owned flag. With owned == 0 the caller keeps the stream
  /// alive while it is in the slot.
  static void replace_out(std::ostream& stream, int owned);
  static void replace_err(std::ostream& stream, int owned);
  static void replace_log(std::ostream& stream, int owned);
  ///@}

  /// Opens exactly file (no search, no directory made) and puts it, owned,
  /// into the first selected slot in the order out, log, err. The stream it
  /// displaces is neither closed nor deleted, and the logger forgets it: the
  /// host deletes it or puts it back into a slot (a displaced owned stream
  /// that another slot still holds stays there, owned by that slot). Nothing
  /// changes if the file cannot be opened.
  void replace_stream(const char* file, char selector);

  /// Opens file, emptied, in the log directory search, and puts the stream
  /// into every selected slot, owned. path (size chars) receives the path
  /// used. Returns 1, or 0 with no slot changed when the path does not fit in
  /// size or the file cannot be opened. Never throws.
  static int log_to(const char* file, char* path, unsigned int size, char selector);

 private:
  friend struct krl_internal::LoggerAccess;

  static KRLLogger* storage();
  static void terminate();
  // Deletes each owned stream once and empties the slots.
  void release();
  // The slot operation behind replace_*: stores stream and owned, then
  // gives up what the slot held: deleted if owned and in no other slot, or,
  // with keep, left to the host.
  void put(std::ostream*& slot, int& slot_owned, std::ostream* stream, int owned, bool keep);

  std::ostream* _out;
  std::ostream* _err;
  std::ostream* _log;
  int _out_owned;
  int _err_owned;
  int _log_owned;
};

#endif  // KRLPORT_SERVICES_LOGGER_H_
