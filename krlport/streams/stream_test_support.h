// Test helpers: streams with no std stream behind them.
#ifndef KRLPORT_STREAMS_STREAM_TEST_SUPPORT_H_
#define KRLPORT_STREAMS_STREAM_TEST_SUPPORT_H_

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"

namespace krl_test {

// An encoding of its own: records the calls it overrides.
class RecordingOstream : public KRLostream {
 public:
  using KRLostream::operator<<;
  KRLostream& operator<<(const char* s) override {
    calls.push_back(std::string("str:") + (s == nullptr ? "<null>" : s));
    return *this;
  }
  KRLostream& operator<<(unsigned long v) override {
    calls.push_back("ulong:" + std::to_string(v));
    return *this;
  }
  std::vector<std::string> calls;
};

// Binary lengths and bytes from memory; running dry throws CORBA_MARSHAL,
// or, when quiet, delivers what is left and says so through is_available.
class QueueIstream : public KRListream {
 public:
  using KRListream::get;
  using KRListream::operator>>;
  KRListream& operator>>(unsigned long& v) override {
    if (next_length == lengths.size()) throw CORBA_MARSHAL();
    v = lengths[next_length++];
    return *this;
  }
  KRListream& get(char* p, unsigned int n) override {
    if (bytes.size() - next_byte < n) {
      if (!quiet) throw CORBA_MARSHAL();
      n = static_cast<unsigned int>(bytes.size() - next_byte);
    }
    std::memcpy(p, bytes.data() + next_byte, n);
    next_byte += n;
    return *this;
  }
  int is_available(unsigned long n) override { return bytes.size() - next_byte >= n ? 1 : 0; }
  std::vector<unsigned long> lengths;
  std::string bytes;
  std::size_t next_length = 0;
  std::size_t next_byte = 0;
  bool quiet = false;
};

}  // namespace krl_test

#endif  // KRLPORT_STREAMS_STREAM_TEST_SUPPORT_H_
