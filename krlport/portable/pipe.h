/// @file
/// KRLPipe: a pair of connected datagram sockets on the loopback address
/// within one process. The two sides, reader and writer, are alike: each sends
/// to the other, and each send is one datagram that one receive takes whole.
#ifndef KRLPORT_PORTABLE_PIPE_H_
#define KRLPORT_PORTABLE_PIPE_H_

#include "krlport/frame/export.h"

/// Owns both sockets. No lock and no state but the two descriptors, which
/// don't change after construction: one thread may send while another
/// receives or waits on a side.
class KRL_EXPORT KRLPipe {
 public:
  /// Builds the pair, blocking sockets. Throws CORBA_BAD_INV_ORDER (4,
  /// COMPLETED_MAYBE) when a socket call fails, CORBA_COMM_FAILURE when this
  /// host's name can't be resolved; nothing stays open when it throws.
  KRLPipe();
  ~KRLPipe();  ///< closes the reader, then the writer

  /// The reading side's socket; owned by the pipe.
  int reader() const { return _reader; }
  /// The writing side's socket; owned by the pipe.
  int writer() const { return _writer; }

  /// @name Transfers
  /// Each is one send or recv with flags 0. The result is the byte count, or
  /// all bits set on failure; they never throw. The receives block until a
  /// datagram is there, and take at most length bytes of it.
  ///@{

  unsigned long write(const char* data, unsigned long length);            ///< writer to reader
  unsigned long read(char* data, unsigned long length);                   ///< at the reader
  unsigned long write_to_writer(const char* data, unsigned long length);  ///< reader to writer
  unsigned long read_from_writer(char* data, unsigned long length);       ///< at the writer
                                                                          ///@}

 private:
  KRLPipe(const KRLPipe&) = delete;
  KRLPipe& operator=(const KRLPipe&) = delete;

  int _reader;
  int _writer;
};

#endif  // KRLPORT_PORTABLE_PIPE_H_
