/// @file
/// KRListream: the typed input stream, the reading side of KRLostream, and the
/// interface of every input stream of the library.
///
/// Built on a std::istream it reads the text KRLostream writes. Every operation
/// that reads a value is virtual, and the protected default constructor leaves
/// the underlying stream null, so a derived stream with no std::istream behind
/// it replaces the whole encoding; istrm_is_null() tells callers which kind
/// they hold.
///
/// The offset and the tables have the meaning and handling of KRLostream's.
///
/// Malformed text never makes a read fail hard: a failed extraction leaves the
/// std::istream failed and the value as the extractor left it, and the reads
/// behind it fail in turn without consuming anything. Declared lengths are not
/// trusted for memory, in this class or any derived one: a long string is read
/// in bounded pieces into a buffer that grows with what the stream delivers.
///
/// A stream has no lock: one thread at a time uses it.
#ifndef KRLPORT_STREAMS_ISTREAM_H_
#define KRLPORT_STREAMS_ISTREAM_H_

#include <iosfwd>

#include "krlport/frame/export.h"

class CORBA_String_var;
class CORBA_WString_var;
class KRLOffsetTable;
class KRLWChar;

/// The typed input stream and the interface of every input stream; it reads
/// what KRLostream writes. Not locked: one thread at a time. A malformed
/// input sets the std::istream's failbit and leaves the value as the
/// extractor does; string reads throw CORBA_MARSHAL where noted, and
/// allocation throws std::bad_alloc.
class KRL_EXPORT KRListream {
 public:
  /// Reads from s, which must outlive this stream. No tables, offset 0.
  KRListream(std::istream& s);
  /// Releases one reference to each table, in array order.
  virtual ~KRListream();

  /// Clears every table (they stay in the array) and sets the offset to 0.
  virtual void reset();
  /// The first table in array order whose content_type() is kind, or null.
  virtual KRLOffsetTable* get_in_table(int kind);
  /// Appends table (not null), taking over one reference the caller holds;
  /// kind is not looked at.
  virtual void set_in_table(int kind, KRLOffsetTable* table);
  /// Shares source's tables, taking one reference to each. Throws
  /// CORBA_BAD_INV_ORDER (minor 4, COMPLETED_MAYBE) when this stream already
  /// holds a table; nothing changes then.
  virtual void copy_in_tables(const KRListream& source);
  /// The nominal offset: the sum of the fixed widths of what was read since
  /// construction or reset().
  virtual long cur_in_offset() const;

  /// A wide string as KRLostream writes it: a count, then that many units. A
  /// null s receives a new block (the global operator delete frees it) that holds the
  /// units and always one 0 unit behind them; a non-null s must have room for
  /// the count the text declares.
  virtual KRListream& operator>>(unsigned short*& s);
  /// Reads the code unit c refers to as an unsigned short.
  virtual KRListream& operator>>(KRLWChar& c);

  ///@{
  /// Scalars: the extractor of the std::istream (which skips white space),
  /// then one character dropped, the separator. 64-bit integers are read as a
  /// double and truncated toward zero; a value outside their range saturates.
  /// unsigned char is read as an int and keeps the low 8 bits.
  virtual KRListream& operator>>(unsigned long long& v);
  virtual KRListream& operator>>(long long& v);
  virtual KRListream& operator>>(double& v);
  virtual KRListream& operator>>(float& v);
  virtual KRListream& operator>>(unsigned long& v);
  virtual KRListream& operator>>(long& v);
  virtual KRListream& operator>>(unsigned int& v);
  virtual KRListream& operator>>(int& v);
  virtual KRListream& operator>>(unsigned short& v);
  virtual KRListream& operator>>(short& v);
  virtual KRListream& operator>>(unsigned char& v);
  virtual KRListream& operator>>(char& v);
  ///@}

  /// A string as KRLostream writes it. Frees the old s with
  /// CORBA::string_free and stores a new one the caller frees the same way:
  /// null for length 0, an empty string for length 1. On std::cin it reads one
  /// word into the buffer s points to instead, allocating nothing; a null s
  /// there reads nothing and sets failbit on std::cin. A length above 64 KiB
  /// is read by this class's own reader of the quoted form, not through the
  /// virtual getCString, whose buffer would need the declared size up front.
  virtual KRListream& operator>>(char*& s);

  ///@{
  /// Arrays: n values by the extractor, then one character dropped (also for
  /// n == 0). Read straight from the std::istream, not through the virtual
  /// scalar operators.
  virtual KRListream& get(unsigned long long* p, unsigned int n);
  virtual KRListream& get(long long* p, unsigned int n);
  virtual KRListream& get(double* p, unsigned int n);
  virtual KRListream& get(float* p, unsigned int n);
  virtual KRListream& get(unsigned long* p, unsigned int n);
  virtual KRListream& get(long* p, unsigned int n);
  virtual KRListream& get(unsigned int* p, unsigned int n);
  virtual KRListream& get(int* p, unsigned int n);
  virtual KRListream& get(unsigned short* p, unsigned int n);
  virtual KRListream& get(short* p, unsigned int n);
  ///@}
  /// n raw bytes; offset n.
  virtual KRListream& get(unsigned char* p, unsigned int n);
  /// n raw bytes; offset n.
  virtual KRListream& get(char* p, unsigned int n);
  /// One character, white space included; offset 1.
  virtual KRListream& get(unsigned char& c);
  /// One character, white space included; offset 1.
  virtual KRListream& get(char& c);
  /// One character, or the end-of-file value; offset 4.
  virtual int get();
  /// The virtual get(unsigned short*, n).
  virtual KRListream& get_wcbuf(unsigned short* p, unsigned int n);
  /// The quoted form into buf, which has room for size characters, terminator
  /// included. Skips white space first. Stores the terminator only if room is
  /// left at the closing quote, and then also takes the line feed behind it.
  /// A missing opening quote, the end of input and more than size characters
  /// are reported on std::cerr, not thrown.
  virtual KRListream& getCString(char* buf, unsigned int size);
  /// 1 for any n: a text stream never says that data is missing.
  virtual int is_available(unsigned long n);
  virtual int _type_number();  ///< 0

  /// Every input stream is a KRListream: returns s.
  static KRListream* _downcast(KRListream* s) { return s; }
  /// 1 when there is no std::istream behind this stream.
  unsigned char istrm_is_null() const { return _strm == nullptr ? 1 : 0; }

 protected:
  /// For derived streams with an encoding of their own: no std::istream, no
  /// tables, offset 0. They override every operation that would use _strm.
  KRListream();
  /// Copies nothing: the copy is a stream as from the default constructor.
  KRListream(const KRListream& other);
  /// Does nothing.
  void operator=(const KRListream& other);

  /// Reads one character, whatever it is, and drops it; offset 1.
  void eatSpace();

  KRLOffsetTable** _tables;  ///< owned array; each entry holds one reference
  int _table_count;          ///< tables in _tables
  int _table_capacity;       ///< 0, 1, 2, 4, 8 ...
  long _offset;              ///< what cur_in_offset() returns
  std::istream* _strm;       ///< not owned; null for a derived stream

 private:
  // The holders' operators refill a holder's own buffer, which only this
  // class may reach.
  friend KRL_EXPORT KRListream& operator>>(KRListream& s, CORBA_String_var& v);
  friend KRL_EXPORT KRListream& operator>>(KRListream& s, CORBA_WString_var& v);
  void read_holder(CORBA_String_var& v);
  void read_holder(CORBA_WString_var& v);

  // operator>>(char*&) for a declared length too large to trust: reads the
  // quoted form in growing chunks and allocates what the text holds.
  char* read_long_string(unsigned int n);
  // operator>>(unsigned short*&) into a new block: the virtual
  // get(unsigned short*, n) in pieces, while the stream is good and
  // is_available says the next piece is there.
  unsigned short* read_new_wide(unsigned long n);
};

#endif  // KRLPORT_STREAMS_ISTREAM_H_
