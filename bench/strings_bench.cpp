// CORBA string allocation and holder assignment against their std peers.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>

#include "krlport/frame/corba.h"
#include "krlport/frame/string_var.h"

namespace {

const char* const kTexts[] = {
    "IDL:omg.org/CORBA/BAD_PARAM:1.0",
    "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0",
    "IDL:ostrevan/KRLRemarshal:1.0",
    "IDL:omg.org/CORBA/TIMEOUT:1.0",
};
constexpr int kTextCount = sizeof kTexts / sizeof kTexts[0];

void BM_CorbaStringDup(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    char* p = CORBA::string_dup(kTexts[i++ & (kTextCount - 1)]);
    benchmark::DoNotOptimize(p);
    CORBA::string_free(p);
  }
}
BENCHMARK(BM_CorbaStringDup);

void BM_Strdup(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    char* p = strdup(kTexts[i++ & (kTextCount - 1)]);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}
BENCHMARK(BM_Strdup);

// A holder that owns a buffer large enough refills it in place.
void BM_StringVarAssignReuse(benchmark::State& state) {
  CORBA_String_var v("IDL:omg.org/CORBA/TRANSACTION_ROLLEDBACK:1.0");
  int i = 0;
  for (auto _ : state) {
    v = kTexts[i++ & (kTextCount - 1)];
    benchmark::DoNotOptimize(v.in());
  }
}
BENCHMARK(BM_StringVarAssignReuse);

void BM_StdStringAssign(benchmark::State& state) {
  std::string s("IDL:omg.org/CORBA/TRANSACTION_ROLLEDBACK:1.0");
  int i = 0;
  for (auto _ : state) {
    s = kTexts[i++ & (kTextCount - 1)];
    benchmark::DoNotOptimize(s.data());
  }
}
BENCHMARK(BM_StdStringAssign);

// The hash of an id given as a C string, through the exported call, against
// the standard library's hash of the same text (which needs its length first).
// Each text is chosen by the previous hash, so the time is the latency of one
// hash, as in a dictionary probe that waits for it.
void BM_CorbaHash(benchmark::State& state) {
  unsigned long h = 0;
  for (auto _ : state) h = CORBA::hash(kTexts[h & (kTextCount - 1)]);
  benchmark::DoNotOptimize(h);
}
BENCHMARK(BM_CorbaHash);

void BM_StdHashCString(benchmark::State& state) {
  std::size_t h = 0;
  for (auto _ : state) h = std::hash<std::string_view>()(kTexts[h & (kTextCount - 1)]);
  benchmark::DoNotOptimize(h);
}
BENCHMARK(BM_StdHashCString);

}  // namespace
