// Fuzzes the reading side of the typed streams with arbitrary text: every
// read operation of KRListream, the string holders' readers and the
// exception reader. A fault, a leak or a sanitizer report is a finding; the
// library's own exceptions (CORBA_MARSHAL and the like) are not.
//
// Input layout: byte 0 holds the script length in its low 4 bits and, in its
// high bit, whether null strings are disallowed for this run. The script
// follows, one operation per byte: the byte modulo kOperations picks the
// operation, the byte divided by kOperations (0 to 7) is its count or size.
// The rest is the text. The script runs over the text on one stream; then the
// exception reader reads the whole text on a fresh stream, and what it makes
// must cross a stream unchanged.
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <new>
#include <sstream>
#include <string>

#include "krlport/exceptions/exception.h"
#include "krlport/frame/corba.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/wstring_var.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"
#include "krlport/streams/string_stream_ops.h"

namespace {

const unsigned kOperations = 32;

template <typename T>
void read_scalar(KRListream& s) {
  T value{};
  s >> value;
}

template <typename T>
void read_array(KRListream& s, unsigned n) {
  T values[8] = {};
  s.get(values, n);
}

void run_operation(KRListream& s, unsigned op, unsigned n) {
  switch (op) {
    case 0: {
      unsigned short* wide = nullptr;
      s >> wide;
      ::operator delete(wide);
      break;
    }
    case 1: {
      unsigned short unit = 0;
      KRLWChar w(unit);
      s >> w;
      break;
    }
    case 2:
      read_scalar<unsigned long long>(s);
      break;
    case 3:
      read_scalar<long long>(s);
      break;
    case 4:
      read_scalar<double>(s);
      break;
    case 5:
      read_scalar<float>(s);
      break;
    case 6:
      read_scalar<unsigned long>(s);
      break;
    case 7:
      read_scalar<long>(s);
      break;
    case 8:
      read_scalar<unsigned int>(s);
      break;
    case 9:
      read_scalar<int>(s);
      break;
    case 10:
      read_scalar<unsigned short>(s);
      break;
    case 11:
      read_scalar<short>(s);
      break;
    case 12:
      read_scalar<unsigned char>(s);
      break;
    case 13:
      read_scalar<char>(s);
      break;
    case 14: {
      char* text = CORBA::string_dup("old");  // the reader frees what it replaces
      s >> text;
      CORBA::string_free(text);
      break;
    }
    case 15:
      read_array<unsigned long long>(s, n);
      break;
    case 16:
      read_array<long long>(s, n);
      break;
    case 17:
      read_array<double>(s, n);
      break;
    case 18:
      read_array<float>(s, n);
      break;
    case 19:
      read_array<unsigned long>(s, n);
      break;
    case 20:
      read_array<long>(s, n);
      break;
    case 21:
      read_array<unsigned int>(s, n);
      break;
    case 22:
      read_array<int>(s, n);
      break;
    case 23:
      read_array<unsigned short>(s, n);
      break;
    case 24:
      read_array<short>(s, n);
      break;
    case 25:
      read_array<unsigned char>(s, n);
      break;
    case 26:
      read_array<char>(s, n);
      break;
    case 27: {
      unsigned char u = 0;
      char c = 0;
      s.get(u).get(c);
      s.get();
      break;
    }
    case 28: {
      unsigned short units[8] = {};
      s.get_wcbuf(units, n);
      break;
    }
    case 29: {
      char buf[8] = {};
      s.getCString(buf, n);
      break;
    }
    case 30: {
      CORBA_String_var narrow("old");
      CORBA_WString_var wide;
      s >> narrow >> wide;
      break;
    }
    default: {
      CORBA_Exception* e = nullptr;
      try {
        s >> e;
      } catch (const CORBA_Exception&) {
      }
      CORBA::release(e);
      s.is_available(n);
      s.cur_in_offset();
      break;
    }
  }
}

std::string written(const CORBA_Exception& e) {
  std::ostringstream out;
  KRLostream s(out);
  s << e;
  e._pretty_print(s);
  return out.str();
}

// Reads an exception from text; whatever it is, writing it, reading that
// back and writing again must give the same text.
void check_exception_reader(const std::string& text) {
  std::istringstream in(text);
  KRListream s(in);
  CORBA_Exception_var e;
  CORBA_Exception* made = nullptr;
  try {
    s >> made;
  } catch (const CORBA_Exception&) {
  }
  e = made;
  if (made == nullptr) return;

  const std::string first = written(*made);
  std::istringstream again_in(first);
  KRListream again(again_in);
  CORBA_Exception* copy = nullptr;
  again >> copy;  // the writer's text is well formed: nothing may throw
  CORBA_Exception_var copy_holder(copy);
  if (copy == nullptr || written(*copy) != first) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // getCString reports malformed text on std::cerr; millions of runs would
  // only slow the fuzzer down. Sanitizers write to the descriptor directly.
  std::cerr.rdbuf(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::size_t script = data[0] & 0x0F;
  if (script > size - 1) script = size - 1;
  const std::string text(reinterpret_cast<const char*>(data) + 1 + script, size - 1 - script);
  CORBA_String_var::allowing_null_string((data[0] & 0x80) != 0 ? 0 : 1);

  std::istringstream in(text);
  KRListream s(in);
  for (std::size_t i = 1; i <= script; ++i) {
    try {
      run_operation(s, data[i] % kOperations, data[i] / kOperations);
    } catch (const CORBA_Exception&) {
    }
  }
  check_exception_reader(text);

  CORBA_String_var::allowing_null_string(1);
  return 0;
}
