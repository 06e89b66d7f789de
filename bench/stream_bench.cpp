// The typed text streams against a plain std::ostringstream / istringstream
// loop that makes or reads the same text. Each iteration handles kBatch
// values; items_per_second gives the rate per value.
#include <cmath>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "krlport/frame/corba.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"

namespace {

constexpr int kBatch = 1024;

// Both signs, every magnitude from one digit to ten.
const std::vector<int>& ints() {
  static const std::vector<int> values = [] {
    std::mt19937 random(1);
    std::vector<int> v(kBatch);
    for (int& x : v) x = static_cast<int>(random()) >> (random() % 31);
    return v;
  }();
  return values;
}

// The full range: one digit to twenty where unsigned long has 64 bits, to
// ten where it has 32.
const std::vector<unsigned long>& unsigned_longs() {
  static const std::vector<unsigned long> values = [] {
    std::mt19937_64 random(4);
    constexpr unsigned bits = sizeof(unsigned long) * 8;
    std::vector<unsigned long> v(kBatch);
    for (unsigned long& x : v) x = static_cast<unsigned long>(random()) >> (random() % bits);
    v[0] = 0;
    v[1] = ~0UL;
    return v;
  }();
  return values;
}

// Both signs, magnitudes from 1e-300 to 1e300, so the six-digit texts have
// exponents as often as not, with some integers and plain fractions.
const std::vector<double>& doubles() {
  static const std::vector<double> values = [] {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> mantissa(1.0, 10.0);
    std::uniform_int_distribution<int> exponent(-300, 300);
    std::uniform_int_distribution<int> small(-7, 9);
    std::vector<double> v(kBatch);
    for (std::size_t i = 0; i < v.size(); ++i) {
      const int e = i % 2 == 0 ? exponent(random) : small(random);
      v[i] = mantissa(random) * std::pow(10.0, e) * (random() % 2 == 0 ? 1 : -1);
      if (i % 7 == 0) v[i] = std::trunc(v[i]);
    }
    return v;
  }();
  return values;
}

// Printable texts with nothing to escape, so the plain loop can make the
// same text without an escaping step.
const std::vector<std::string>& texts() {
  static const std::vector<std::string> values = [] {
    std::mt19937 random(3);
    std::vector<std::string> v(kBatch);
    for (std::string& s : v) {
      s.resize(8 + random() % 32);
      for (char& c : s) c = static_cast<char>('a' + random() % 26);
    }
    return v;
  }();
  return values;
}

template <class Write>
std::string text_of(Write write) {
  std::ostringstream text;
  write(text);
  return text.str();
}

// Runs write over and over; first checks that it makes the same text as the
// other side, reference, does.
template <class Write, class Reference>
void run_writes(benchmark::State& state, Write write, Reference reference) {
  if (text_of(write) != text_of(reference)) {
    state.SkipWithError("the two sides write different texts");
    return;
  }
  std::ostringstream text;
  for (auto _ : state) {
    text.seekp(0);
    write(text);
    benchmark::DoNotOptimize(text.tellp());
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

// Reads kBatch values of T from content into values, over and over; first
// checks that it reads the same values as the other side, reference, does.
template <class T, class Read, class Reference>
void run_reads(benchmark::State& state, const std::string& content, Read read,
               Reference reference) {
  std::vector<T> values(kBatch);
  std::vector<T> expected(kBatch);
  {
    std::istringstream a(content);
    std::istringstream b(content);
    read(a, values.data());
    reference(b, expected.data());
    if (values != expected || a.rdstate() != b.rdstate()) {
      state.SkipWithError("the two sides read different values");
      return;
    }
  }
  std::istringstream text(content);
  for (auto _ : state) {
    text.clear();
    text.seekg(0);
    read(text, values.data());
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class Read>
void run_reads(benchmark::State& state, const std::string& content, Read read) {
  std::istringstream text(content);
  for (auto _ : state) {
    text.clear();
    text.seekg(0);
    read(text);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class T>
void krl_write(std::ostream& text, const std::vector<T>& values) {
  KRLostream out(text);
  for (T v : values) out << v;
}

template <class T>
void std_write(std::ostream& text, const std::vector<T>& values) {
  for (T v : values) text << v << ' ';
}

template <class T>
std::string krl_text_of(const std::vector<T>& values) {
  return text_of([&](std::ostream& text) { krl_write(text, values); });
}

std::string krl_text_of_strings() {
  std::ostringstream text;
  KRLostream out(text);
  for (const std::string& s : texts()) out << s.c_str();
  return text.str();
}

void krl_write_ints(std::ostream& text) { krl_write(text, ints()); }
void std_write_ints(std::ostream& text) { std_write(text, ints()); }
void krl_write_unsigned_longs(std::ostream& text) { krl_write(text, unsigned_longs()); }
void std_write_unsigned_longs(std::ostream& text) { std_write(text, unsigned_longs()); }
void krl_write_doubles(std::ostream& text) { krl_write(text, doubles()); }
void std_write_doubles(std::ostream& text) { std_write(text, doubles()); }

void krl_write_strings(std::ostream& text) {
  KRLostream out(text);
  for (const std::string& s : texts()) out << s.c_str();
}

void std_write_strings(std::ostream& text) {
  for (const std::string& s : texts()) text << s.size() + 1 << '"' << s << "\"\n";
}

void BM_KrlWriteInt(benchmark::State& state) { run_writes(state, krl_write_ints, std_write_ints); }
BENCHMARK(BM_KrlWriteInt);

void BM_StdWriteInt(benchmark::State& state) { run_writes(state, std_write_ints, krl_write_ints); }
BENCHMARK(BM_StdWriteInt);

void BM_KrlWriteUnsignedLong(benchmark::State& state) {
  run_writes(state, krl_write_unsigned_longs, std_write_unsigned_longs);
}
BENCHMARK(BM_KrlWriteUnsignedLong);

void BM_StdWriteUnsignedLong(benchmark::State& state) {
  run_writes(state, std_write_unsigned_longs, krl_write_unsigned_longs);
}
BENCHMARK(BM_StdWriteUnsignedLong);

void BM_KrlWriteDouble(benchmark::State& state) {
  run_writes(state, krl_write_doubles, std_write_doubles);
}
BENCHMARK(BM_KrlWriteDouble);

void BM_StdWriteDouble(benchmark::State& state) {
  run_writes(state, std_write_doubles, krl_write_doubles);
}
BENCHMARK(BM_StdWriteDouble);

void BM_KrlWriteString(benchmark::State& state) {
  run_writes(state, krl_write_strings, std_write_strings);
}
BENCHMARK(BM_KrlWriteString);

void BM_StdWriteString(benchmark::State& state) {
  run_writes(state, std_write_strings, krl_write_strings);
}
BENCHMARK(BM_StdWriteString);

template <class T>
void krl_read(std::istream& text, T* values) {
  KRListream in(text);
  for (int i = 0; i < kBatch; ++i) in >> values[i];
}

template <class T>
void std_read(std::istream& text, T* values) {
  for (int i = 0; i < kBatch; ++i) text >> values[i];  // skips the separators
}

void BM_KrlReadInt(benchmark::State& state) {
  run_reads<int>(state, krl_text_of(ints()), krl_read<int>, std_read<int>);
}
BENCHMARK(BM_KrlReadInt);

void BM_StdReadInt(benchmark::State& state) {
  run_reads<int>(state, krl_text_of(ints()), std_read<int>, krl_read<int>);
}
BENCHMARK(BM_StdReadInt);

void BM_KrlReadDouble(benchmark::State& state) {
  run_reads<double>(state, krl_text_of(doubles()), krl_read<double>, std_read<double>);
}
BENCHMARK(BM_KrlReadDouble);

void BM_StdReadDouble(benchmark::State& state) {
  run_reads<double>(state, krl_text_of(doubles()), std_read<double>, krl_read<double>);
}
BENCHMARK(BM_StdReadDouble);

// Each string read makes a new allocation, as operator>>(char*&) must.
void BM_KrlReadString(benchmark::State& state) {
  run_reads(state, krl_text_of_strings(), [](std::istream& text) {
    KRListream in(text);
    char* s = nullptr;
    for (int i = 0; i < kBatch; ++i) in >> s;
    benchmark::DoNotOptimize(s);
    CORBA::string_free(s);
  });
}
BENCHMARK(BM_KrlReadString);

// The plain loop reuses one std::string, so it allocates nothing.
void BM_StdReadString(benchmark::State& state) {
  run_reads(state, krl_text_of_strings(), [](std::istream& text) {
    std::string s;
    unsigned int n = 0;
    for (int i = 0; i < kBatch; ++i) {
      text >> n;
      text.get();
      std::getline(text, s, '"');
      text.get();
    }
    benchmark::DoNotOptimize(s.data());
  });
}
BENCHMARK(BM_StdReadString);

// The same with a new std::string per value, which allocates as
// operator>>(char*&) does for every text longer than the inline buffer.
void BM_StdReadStringFresh(benchmark::State& state) {
  run_reads(state, krl_text_of_strings(), [](std::istream& text) {
    unsigned int n = 0;
    for (int i = 0; i < kBatch; ++i) {
      std::string s;
      text >> n;
      text.get();
      std::getline(text, s, '"');
      text.get();
      benchmark::DoNotOptimize(s.data());
    }
  });
}
BENCHMARK(BM_StdReadStringFresh);

}  // namespace
