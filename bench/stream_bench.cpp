// The typed text streams against a plain std::ostringstream / istringstream
// loop that makes or reads the same text. Each iteration handles kBatch
// values; items_per_second gives the rate per value.
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

const std::vector<int>& ints() {
  static const std::vector<int> values = [] {
    std::mt19937 random(1);
    std::vector<int> v(kBatch);
    for (int& x : v) x = static_cast<int>(random()) >> (random() % 31);
    return v;
  }();
  return values;
}

const std::vector<double>& doubles() {
  static const std::vector<double> values = [] {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> d(-1e6, 1e6);
    std::vector<double> v(kBatch);
    for (double& x : v) x = d(random);
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
void run_writes(benchmark::State& state, Write write) {
  std::ostringstream text;
  for (auto _ : state) {
    text.seekp(0);
    write(text);
    benchmark::DoNotOptimize(text.tellp());
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

std::string krl_text_of_ints() {
  std::ostringstream text;
  KRLostream out(text);
  for (int v : ints()) out << v;
  return text.str();
}

std::string krl_text_of_doubles() {
  std::ostringstream text;
  KRLostream out(text);
  for (double v : doubles()) out << v;
  return text.str();
}

std::string krl_text_of_strings() {
  std::ostringstream text;
  KRLostream out(text);
  for (const std::string& s : texts()) out << s.c_str();
  return text.str();
}

void BM_KrlWriteInt(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    KRLostream out(text);
    for (int v : ints()) out << v;
  });
}
BENCHMARK(BM_KrlWriteInt);

void BM_StdWriteInt(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    for (int v : ints()) text << v << ' ';
  });
}
BENCHMARK(BM_StdWriteInt);

void BM_KrlWriteDouble(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    KRLostream out(text);
    for (double v : doubles()) out << v;
  });
}
BENCHMARK(BM_KrlWriteDouble);

void BM_StdWriteDouble(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    for (double v : doubles()) text << v << ' ';
  });
}
BENCHMARK(BM_StdWriteDouble);

void BM_KrlWriteString(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    KRLostream out(text);
    for (const std::string& s : texts()) out << s.c_str();
  });
}
BENCHMARK(BM_KrlWriteString);

void BM_StdWriteString(benchmark::State& state) {
  run_writes(state, [](std::ostream& text) {
    for (const std::string& s : texts()) text << s.size() + 1 << '"' << s << "\"\n";
  });
}
BENCHMARK(BM_StdWriteString);

void BM_KrlReadInt(benchmark::State& state) {
  run_reads(state, krl_text_of_ints(), [](std::istream& text) {
    KRListream in(text);
    int v = 0;
    for (int i = 0; i < kBatch; ++i) in >> v;
    benchmark::DoNotOptimize(v);
  });
}
BENCHMARK(BM_KrlReadInt);

void BM_StdReadInt(benchmark::State& state) {
  run_reads(state, krl_text_of_ints(), [](std::istream& text) {
    int v = 0;
    for (int i = 0; i < kBatch; ++i) text >> v;
    benchmark::DoNotOptimize(v);
  });
}
BENCHMARK(BM_StdReadInt);

void BM_KrlReadDouble(benchmark::State& state) {
  run_reads(state, krl_text_of_doubles(), [](std::istream& text) {
    KRListream in(text);
    double v = 0;
    for (int i = 0; i < kBatch; ++i) in >> v;
    benchmark::DoNotOptimize(v);
  });
}
BENCHMARK(BM_KrlReadDouble);

void BM_StdReadDouble(benchmark::State& state) {
  run_reads(state, krl_text_of_doubles(), [](std::istream& text) {
    double v = 0;
    for (int i = 0; i < kBatch; ++i) text >> v;
    benchmark::DoNotOptimize(v);
  });
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
