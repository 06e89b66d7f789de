#include "krlport/streams/string_stream_ops.h"

#include <cstring>
#include <vector>

#include "krlport/exceptions/system_exception.h"

namespace {

// Lengths up to this many bytes are allocated before the bytes are read;
// longer ones are read in pieces of this size first, each after the stream
// said through is_available that it is there (or its get threw), so a length
// that no data backs cannot claim memory.
constexpr unsigned long kTrustedLength = 1ul << 16;

}  // namespace

KRListream& operator>>(KRListream& s, CORBA_String_var& v) {
  s.read_holder(v);
  return s;
}

KRListream& operator>>(KRListream& s, CORBA_WString_var& v) {
  s.read_holder(v);
  return s;
}

KRLostream& operator<<(KRLostream& s, const CORBA_WString_var& v) {
  static const unsigned short kEmpty[1] = {0};
  const unsigned short* text = v.in();
  return s << (text == nullptr ? kEmpty : text);
}

void KRListream::read_holder(CORBA_String_var& v) {
  if (istrm_is_null() == 0) {
    v.release_buffer();
    v._ptr = nullptr;
    v._capacity = 0;
    *this >> v._ptr;
    return;
  }
  unsigned long length = 0;
  *this >> length;
  if (length == 0) {
    if (CORBA_String_var::_allowing_null_string == 0) throw CORBA_MARSHAL();
    v.release_buffer();
    v._ptr = nullptr;
    v._capacity = 0;
    return;
  }
  // The holder keeps its own buffer when the text fits.
  const auto make_room = [&v, length] {
    if (length <= v._capacity && v._ptr != nullptr) return;
    v.release_buffer();
    v._ptr = nullptr;
    v._capacity = 0;
    v._ptr = CORBA::string_alloc(length);
    v._capacity = length + 1;
  };
  if (length <= kTrustedLength) {
    make_room();
    get(v._ptr, static_cast<unsigned int>(length));
  } else {
    // Read what the stream really holds before the buffer is sized by it.
    std::vector<char> bytes;
    for (unsigned long done = 0; done < length; done += kTrustedLength) {
      const unsigned long step = length - done < kTrustedLength ? length - done : kTrustedLength;
      if (is_available(step) == 0) throw CORBA_MARSHAL();
      bytes.resize(done + step);
      get(bytes.data() + done, static_cast<unsigned int>(step));
    }
    make_room();
    std::memcpy(v._ptr, bytes.data(), length);
  }
  // The length counts the terminator, which arrives with the bytes. A stream
  // that sends none still loses no byte: a terminator goes behind them, in a
  // buffer one byte longer if the reused one is exactly full.
  if (v._capacity > length) {
    v._ptr[length] = '\0';
  } else if (v._ptr[length - 1] != '\0') {
    char* longer = CORBA::string_alloc(length);
    std::memcpy(longer, v._ptr, length);
    longer[length] = '\0';
    v.release_buffer();
    v._ptr = longer;
    v._capacity = length + 1;
  }
}

void KRListream::read_holder(CORBA_WString_var& v) {
  CORBA::wstring_free(v._ptr);
  v._ptr = nullptr;
  *this >> v._ptr;
}
