// KRLDictionary against std::unordered_map given the same hash (_krl_hash) and
// the same equality (compare(a, b) == 0), at 16, 1000 and 100000 entries:
// lookup hit, lookup miss, insert + remove churn, and repeated lookup of one
// key. Every benchmark is a template over the key type; each key type
// supplies a KeySet that makes distinct keys and owns what they refer to.
#include <algorithm>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "krlport/frame/dictionary.h"
#include "krlport/frame/string_wrapper.h"
#include "krlport/threads/unique_id.h"

namespace {

// Keys number 0 to n - 1 of a key type. Stored keys and probe keys are
// separate objects, as a received id is not the registered one.
template <class Key>
struct KeySet;

// Distinct repository ids of about 32 characters: "IDL:", a module path,
// a name of 6 to 13 random letters, ":1.0". A fixed generator start gives the same
// sequence, so KeySet(n) is a prefix of KeySet(m) for n < m. Ids that differ
// only in a few fixed positions would defeat the shift-xor string hash and
// measure its collisions instead of the containers.
template <>
struct KeySet<KRLStringWrapper> {
  explicit KeySet(std::size_t n) {
    static const char* const kModules[] = {"omg.org/CORBA/", "omg.org/CosNaming/", "ostrevan/",
                                           "acme.com/Bank/"};
    static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    std::mt19937 rng(1);
    std::unordered_set<std::string> seen;
    texts.reserve(n);
    while (texts.size() < n) {
      std::string id = std::string("IDL:") + kModules[rng() % 4];
      for (unsigned k = 0, len = 6 + rng() % 8; k < len; ++k) id += kLetters[rng() % 53];
      id += ":1.0";
      if (seen.insert(id).second) texts.push_back(id);
    }
    for (const std::string& t : texts) keys.emplace_back(t.c_str());
  }
  std::vector<std::string> texts;
  std::vector<KRLStringWrapper> keys;
};

// Ids handed out in sequence, as the counter of KRLUniqueId does.
template <>
struct KeySet<KRLUniqueId> {
  explicit KeySet(std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) keys.push_back(KRLUniqueId(1000 + i));
  }
  std::vector<KRLUniqueId> keys;
};

template <class Key>
struct KrlHash {
  std::size_t operator()(const Key& k) const { return _krl_hash(k); }
};
template <class Key>
struct KrlEqual {
  bool operator()(const Key& a, const Key& b) const { return compare(a, b) == 0; }
};

// The two containers behind one small interface, with registry-like values.
template <class Key>
class Krl {
 public:
  typedef Key key_type;
  void insert(const Key& k, void* v) { _d.insert(k, v); }
  bool find(const Key& k, void*& v) { return _d.lookup(k, v); }
  void erase(const Key& k) { _d.remove(k); }

 private:
  KRLDictionary<Key, void*> _d;
};

template <class Key>
class Std {
 public:
  typedef Key key_type;
  void insert(const Key& k, void* v) { _m.emplace(k, v); }
  bool find(const Key& k, void*& v) {
    auto it = _m.find(k);
    if (it == _m.end()) return false;
    v = it->second;
    return true;
  }
  void erase(const Key& k) { _m.erase(k); }

 private:
  std::unordered_map<Key, void*, KrlHash<Key>, KrlEqual<Key>> _m;
};

// The map holds keys 0 to n - 1; probes are copies of keys [first, first + n)
// in a shuffled order, so that large tables are visited at random.
template <class Map>
struct Fixture {
  using Key = typename Map::key_type;
  Fixture(std::size_t n, std::size_t first, std::size_t total)
      : stored(total), probes(first + n), order(n) {
    for (std::size_t i = 0; i < n; ++i) map.insert(stored.keys[i], &stored.keys[i]);
    for (std::size_t i = 0; i < n; ++i) order[i] = first + i;
    std::shuffle(order.begin(), order.end(), std::mt19937(42));
  }
  KeySet<Key> stored;
  KeySet<Key> probes;
  std::vector<std::size_t> order;
  Map map;
};

template <class Map>
void Lookup(benchmark::State& state, bool hit) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  Fixture<Map> f(n, hit ? 0 : n, n);
  std::size_t i = 0;
  void* v = nullptr;
  for (auto _ : state) {
    bool found = f.map.find(f.probes.keys[f.order[i]], v);
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
    f.map.insert(f.stored.keys[in], nullptr);
    f.map.erase(f.stored.keys[i]);
    if (++i == 2 * n) i = 0;
  }
}

template <class Map>
void BM_RepeatedLookup(benchmark::State& state) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  Fixture<Map> f(n, 0, n);
  const auto& key = f.probes.keys[f.order[0]];
  void* v = nullptr;
  for (auto _ : state) {
    bool found = f.map.find(key, v);
    benchmark::DoNotOptimize(found);
  }
  benchmark::DoNotOptimize(v);
}

void Sizes(benchmark::internal::Benchmark* b) { b->Arg(16)->Arg(1000)->Arg(100000); }

BENCHMARK_TEMPLATE(BM_LookupHit, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupHit, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Std<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Krl<KRLStringWrapper>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Std<KRLStringWrapper>)->Apply(Sizes);

BENCHMARK_TEMPLATE(BM_LookupHit, Krl<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupHit, Std<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Krl<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_LookupMiss, Std<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Krl<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_Churn, Std<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Krl<KRLUniqueId>)->Apply(Sizes);
BENCHMARK_TEMPLATE(BM_RepeatedLookup, Std<KRLUniqueId>)->Apply(Sizes);

}  // namespace
