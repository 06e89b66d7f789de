/// @file
/// KRLostream: the typed output stream, and the interface of every output
/// stream of the library; endl, its line-end manipulator.
///
/// Built on a std::ostream it writes each typed value as text that KRListream
/// reads back: a number and a single space, a string as its length and its
/// quoted form. Every operation that writes a value is virtual, and the
/// protected default constructor leaves the underlying stream null, so a
/// derived stream with no std::ostream behind it replaces the whole encoding by
/// overriding those operations.
///
/// Beside the text a stream keeps a nominal offset (each value adds a fixed
/// width, whatever its text takes) and an array of offset tables, one for each
/// kind of indirection its user records. The stream holds one counted reference
/// to each table and writes nothing into them itself.
///
/// A stream has no lock: one thread at a time uses it, and streams that share
/// tables through copy_out_tables are used by one thread at a time as well.
#ifndef KRLPORT_STREAMS_OSTREAM_H_
#define KRLPORT_STREAMS_OSTREAM_H_

#include <iosfwd>

#include "krlport/frame/export.h"

class KRLOffsetTable;
class KRLWChar;

/// The typed output stream and the interface of every output stream. Not
/// locked: one thread at a time. Operations throw what the std::ostream
/// throws (nothing, unless its exceptions are enabled) and std::bad_alloc when
/// a table array cannot grow.
class KRL_EXPORT KRLostream {
 public:
  /// Writes to s, which must outlive this stream; s is neither flushed nor
  /// closed at the end. No tables, offset 0.
  KRLostream(std::ostream& s);
  /// Releases one reference to each table, in array order.
  virtual ~KRLostream();

  /// Clears every table (they stay in the array) and sets the offset to 0.
  virtual void reset();
  /// The first table, in the order they were set, whose content_type() is
  /// kind; null when there is none. The stream keeps its reference.
  virtual KRLOffsetTable* get_out_table(int kind);
  /// Appends table, which must not be null, and takes over one reference the
  /// caller holds. kind is not looked at: get_out_table goes by the table's own
  /// content_type(), and the first table of a kind stays the one found.
  virtual void set_out_table(int kind, KRLOffsetTable* table);
  /// Shares source's tables, taking one reference to each. Throws
  /// CORBA_BAD_INV_ORDER (minor 4, COMPLETED_MAYBE) when this stream already
  /// holds a table; nothing changes then.
  virtual void copy_out_tables(const KRLostream& source);
  /// The nominal offset: the sum of the fixed widths of what was written
  /// since construction or reset().
  virtual long cur_out_offset() const;

  /// A wide string: its unit count, terminator included, then each unit as an
  /// unsigned short would be written, the terminating 0 last. Null is written
  /// as the empty string.
  virtual KRLostream& operator<<(const unsigned short* s);
  /// The code unit c refers to, written as an unsigned short.
  virtual KRLostream& operator<<(KRLWChar c);

  ///@{
  /// Scalars: the inserter's text for the value, then " ". 64-bit integers go
  /// through double, so they keep six significant digits in the default
  /// format. The text follows the caller's format state of the std::ostream,
  /// which the stream never changes. Offset widths: char and unsigned char 2,
  /// 16-bit 3, int, long and float 5, double and 64-bit 9.
  virtual KRLostream& operator<<(unsigned long long v);
  virtual KRLostream& operator<<(long long v);
  virtual KRLostream& operator<<(double v);
  virtual KRLostream& operator<<(float v);
  virtual KRLostream& operator<<(unsigned long v);
  virtual KRLostream& operator<<(long v);
  virtual KRLostream& operator<<(unsigned int v);
  virtual KRLostream& operator<<(int v);
  virtual KRLostream& operator<<(unsigned short v);
  virtual KRLostream& operator<<(short v);
  ///@}
  virtual KRLostream& operator<<(unsigned char v);  ///< as a decimal number
  virtual KRLostream& operator<<(char v);           ///< the character itself

  /// A terminated string. On std::cout and std::cerr the bytes alone; on any
  /// other stream its length (terminator counted) and, from length 2 on, the
  /// quoted form of putCString. Null writes "0 ", the empty string "1 ".
  virtual KRLostream& operator<<(const char* s);

  ///@{
  /// Arrays: n elements, each as its scalar operator writes it; nothing at all
  /// for n == 0. They write to the std::ostream directly and never call the
  /// virtual scalar operators. The arrays carry no count.
  virtual KRLostream& put(const unsigned long long* p, unsigned int n);
  virtual KRLostream& put(const long long* p, unsigned int n);
  virtual KRLostream& put(const double* p, unsigned int n);
  virtual KRLostream& put(const float* p, unsigned int n);
  virtual KRLostream& put(const unsigned long* p, unsigned int n);
  virtual KRLostream& put(const long* p, unsigned int n);
  virtual KRLostream& put(const unsigned int* p, unsigned int n);
  virtual KRLostream& put(const int* p, unsigned int n);
  virtual KRLostream& put(const unsigned short* p, unsigned int n);
  virtual KRLostream& put(const short* p, unsigned int n);
  ///@}
  /// n raw bytes, no separator; offset n.
  virtual KRLostream& put(const unsigned char* p, unsigned int n);
  /// n raw bytes, no separator; offset n.
  virtual KRLostream& put(const char* p, unsigned int n);
  /// One raw byte, no separator; offset 1.
  virtual KRLostream& put(char c);
  /// The virtual put(const unsigned short*, n).
  virtual KRLostream& put_wcbuf(const unsigned short* p, unsigned int n);
  /// The quoted form of s, which must not be null: a double quote, each byte
  /// plain or escaped (`\b \t \n \f \r \" \\`, `\[` and `\]` for the braces, `\xhh`
  /// for the rest that isprint rejects), a double quote and a line feed.
  virtual KRLostream& putCString(const char* s);
  virtual int _type_number();  ///< 0

  /// Calls the manipulator with this stream and returns what it returns.
  KRLostream& operator<<(KRLostream& (*manip)(KRLostream&)) { return manip(*this); }
  /// Every output stream is a KRLostream: returns s.
  static KRLostream* _downcast(KRLostream* s) { return s; }

 protected:
  /// For derived streams with an encoding of their own: no std::ostream, no
  /// tables, offset 0. They override every operation that would use _strm.
  KRLostream();
  /// Copies nothing: the copy is a stream as from the default constructor.
  KRLostream(const KRLostream& other);
  /// Does nothing.
  void operator=(const KRLostream& other);

  KRLOffsetTable** _tables;  ///< owned array; each entry holds one reference
  int _table_count;          ///< tables in _tables
  int _table_capacity;       ///< 0, 1, 2, 4, 8 ...
  long _offset;              ///< what cur_out_offset() returns
  std::ostream* _strm;       ///< not owned; null for a derived stream

 private:
  friend KRL_EXPORT KRLostream& endl(KRLostream& s);
};

/// With a std::ostream behind s: that stream's std::endl (a line feed and a
/// flush); the offset stays. Without one: s << "\n", so a derived stream
/// receives the line end through operator<<(const char*).
KRL_EXPORT KRLostream& endl(KRLostream& s);

#endif  // KRLPORT_STREAMS_OSTREAM_H_
