// KRLDictionary against std::unordered_map with the standard hash (the peer's
// own best usual choice), at 16, 1000 and 100000 entries, for the two key
// types of the broker's hot registries: object pointers (the offset table's
// KRLObjWrap) and repository ids (the exception registry's KRLStringWrapper).
// Lookup hit, lookup miss, insert + remove churn, and repeated lookup of one
// key.
//
// Fairness. Both containers hold the same keys and are probed with the same
// key values in the same order. A probe key is a separate object from the
// stored one, as a received id is: ids are separate copies of the texts (the
// std::string map probes with a std::string holding that copy), pointers are
// separate wrappers of the same addresses. Probes go in a shuffled order, so
// that neither side gains from a remembered slot or a warm cache line, except
// in BM_RepeatedLookup, which measures exactly that.
#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "krlport/frame/dictionary.h"
#include "krlport/frame/string_wrapper.h"
#include "krlport/streams/offset_table.h"

namespace {

// Keys number 0 to n - 1 of a key type, and a copy of them in separate
// objects, the form in which a probe arrives.
template <class Key>
struct KeySet;

// Distinct repository ids of 28 characters: "IDL:", a module of 3 to 8
// random letters, "/", a random name, ":1.0", e.g. "IDL:Qvrk/XbTaLmnOpqRsT:1.0".
// A registry of many ids spans many modules; ids that differ only in a few
// letters just before ":1.0" would collide in the string hash, whose value
// comes from the last 31 bytes, each spread over only 8 bits of it.
template <>
struct KeySet<KRLStringWrapper> {
  explicit KeySet(std::size_t n) {
    static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    std::mt19937 rng(1);
    std::unordered_set<std::string> seen;
    texts.reserve(n);
    while (texts.size() < n) {
      std::string id = "IDL:";
      for (unsigned k = 0, len = 3 + rng() % 6; k < len; ++k) id += kLetters[rng() % 53];
      id += '/';
      while (id.size() < 24) id += kLetters[rng() % 53];
      id += ":1.0";
      if (seen.insert(id).second) texts.push_back(id);
    }
    wrap();
  }
  // Fresh copies of every text.
  KeySet(const KeySet& other) : texts(other.texts.begin(), other.texts.end()) { wrap(); }
  void wrap() {
    keys.clear();
    for (const std::string& t : texts) keys.emplace_back(t.c_str());
  }
  // What the standard map is keyed and probed by.
  typedef std::string StdKey;
  const std::string& std_key(std::size_t i) const { return texts[i]; }

  std::vector<std::string> texts;
  std::vector<KRLStringWrapper> keys;
};

// Addresses of live heap objects of 32 bytes, as a writer's offset table
// sees them, in a shuffled order so that present and absent keys interleave.
template <>
struct KeySet<KRLObjWrap> {
  struct Object {
    char bytes[32];
  };
  explicit KeySet(std::size_t n)
      : objects(std::make_shared<std::vector<std::unique_ptr<Object>>>()) {
    for (std::size_t i = 0; i < n; ++i) objects->emplace_back(new Object());
    std::shuffle(objects->begin(), objects->end(), std::mt19937(3));
    for (const auto& o : *objects) keys.emplace_back(o.get());
  }
  // New wrappers of the same objects.
  KeySet(const KeySet& other) = default;
  typedef void* StdKey;
  void* std_key(std::size_t i) const { return keys[i].object; }

  std::shared_ptr<std::vector<std::unique_ptr<Object>>> objects;
  std::vector<KRLObjWrap> keys;
};

// The two containers behind one small interface, with registry-like values.
template <class Key>
class Krl {
 public:
  typedef Key key_type;
  void insert(const KeySet<Key>& s, std::size_t i, void* v) { _d.insert(s.keys[i], v); }
  bool find(const KeySet<Key>& s, std::size_t i, void*& v) { return _d.lookup(s.keys[i], v); }
  void erase(const KeySet<Key>& s, std::size_t i) { _d.remove(s.keys[i]); }

 private:
  KRLDictionary<Key, void*> _d;
};

template <class Key>
class Std {
 public:
  typedef Key key_type;
  void insert(const KeySet<Key>& s, std::size_t i, void* v) { _m.emplace(s.std_key(i), v); }
  bool find(const KeySet<Key>& s, std::size_t i, void*& v) {
    auto it = _m.find(s.std_key(i));
    if (it == _m.end()) return false;
    v = it->second;
    return true;
  }
  void erase(const KeySet<Key>& s, std::size_t i) { _m.erase(s.std_key(i)); }

 private:
  std::unordered_map<typename KeySet<Key>::StdKey, void*> _m;
};

// The keys of one run: `total` stored keys and a separate copy of them for
// probing, built once per key type and size and shared by every benchmark
// (both containers, every repetition), so a run spends its time measuring,
// not generating keys. Never freed: the process ends with the run.
template <class Key>
struct KeyPair {
  explicit KeyPair(std::size_t total) : stored(total), probes(stored) {}
  KeySet<Key> stored;
  KeySet<Key> probes;
};

template <class Key>
const KeyPair<Key>& keys_for(std::size_t total) {
  static std::map<std::size_t, std::unique_ptr<KeyPair<Key>>> cache;
  std::unique_ptr<KeyPair<Key>>& p = cache[total];
  if (!p) p.reset(new KeyPair<Key>(total));
  return *p;
}

// A shuffled order of [first, first + n), the same for both containers.
const std::vector<std::size_t>& order_for(std::size_t n, std::size_t first) {
  static std::map<std::pair<std::size_t, std::size_t>, std::vector<std::size_t>> cache;
  std::vector<std::size_t>& order = cache[std::make_pair(n, first)];
  if (order.empty()) {
    for (std::size_t i = 0; i < n; ++i) order.push_back(first + i);
    std::shuffle(order.begin(), order.end(), std::mt19937(42));
  }
  return order;
}

// `total` keys exist; the map holds keys 0 to n - 1; probes are copies of keys
// [first, first + n) in a shuffled order.
template <class Map>
struct Fixture {
  using Key = typename Map::key_type;
  Fixture(std::size_t n, std::size_t first, std::size_t total)
      : stored(keys_for<Key>(total).stored),
        probes(keys_for<Key>(total).probes),
        order(order_for(n, first)) {
    for (std::size_t i = 0; i < n; ++i) map.insert(stored, i, const_cast<Key*>(&stored.keys[i]));
  }
  const KeySet<Key>& stored;
  const KeySet<Key>& probes;
  const std::vector<std::size_t>& order;
  Map map;
};

template <class Map>
void Lookup(benchmark::State& state, bool hit) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  Fixture<Map> f(n, hit ? 0 : n, hit ? n : 2 * n);
  std::size_t i = 0;
  void* v = nullptr;
  for (auto _ : state) {
    bool found = f.map.find(f.probes, f.order[i], v);
    benchmark::DoNotOptimize(found);
    if (++i == n) i = 0;
  }
  benchmark::DoNotOptimize(v);
}

template <class Map>
void BM_LookupHit(benchmark::State& state) {
  Lookup<Map>(state, true);
}
template <class Map>
void BM_LookupMiss(benchmark::State& state) {
  Lookup<Map>(state, false);
}

// Keys [i, i + n) of 2n are present; each step inserts key i + n and removes
// key i, modulo 2n, so the size stays n and nothing grows.
template <class Map>
void BM_Churn(benchmark::State& state) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  Fixture<Map> f(n, 0, 2 * n);
  std::size_t i = 0;
  for (auto _ : state) {
    std::size_t in = i + n;
    if (in >= 2 * n) in -= 2 * n;
    f.map.insert(f.stored, in, nullptr);
    f.map.erase(f.probes, i);
    if (++i == 2 * n) i = 0;
  }
}

template <class Map>
void BM_RepeatedLookup(benchmark::State& state) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  Fixture<Map> f(n, 0, n);
  void* v = nullptr;
  for (auto _ : state) {
    bool found = f.map.find(f.probes, f.order[0], v);
    benchmark::DoNotOptimize(found);
  }
  benchmark::DoNotOptimize(v);
}

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(16)->Arg(1000)->Arg(100000); }

BENCHMARK_TEMPLATE(BM_LookupHit, Krl<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupHit, Std<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Krl<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Std<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Krl<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Std<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Krl<KRLObjWrap>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Std<KRLObjWrap>)->Apply(Sizes);

BENCHMARK_TEMPLATE(BM_LookupHit, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupHit, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Std<KRLStringWrapper>)->Apply(Sizes);

}  // namespace
