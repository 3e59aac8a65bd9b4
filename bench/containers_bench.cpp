// Growing and comparing large containers: a week of per-minute intraday points
// appended one by one against a plain vector of the same entries, and
// equality of a large dictionary whose keys come back in reverse order against
// the same dictionary in its own order. Both pairs should scale alike.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBIntraDay.h"

namespace {

using namespace nyb;

void BM_IntraDay_AddValue(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  for (auto _ : state) {
    NYBIntraDay record;
    for (int i = 0; i < count; ++i) record.addValue(i, NYBDate(60.0 * i), NYBDate(60.0 * i + 60));
    benchmark::DoNotOptimize(record.entries());
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_IntraDay_AddValue)->Arg(1'440)->Arg(10'080);

// Baseline: the same entries formatted the same way, pushed onto a vector.
void BM_Baseline_VectorOfPoints(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  NYBIntraDay formatterWarmUp;
  formatterWarmUp.addValue(0, NYBDate(0), NYBDate(60));
  for (auto _ : state) {
    std::vector<NYBDictionary> points;
    for (int i = 0; i < count; ++i) {
      NYBIntraDay one;
      one.addValue(i, NYBDate(60.0 * i), NYBDate(60.0 * i + 60));
      points.push_back(*(*one.entries().array())[0].dictionary());
    }
    benchmark::DoNotOptimize(points);
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Baseline_VectorOfPoints)->Arg(1'440)->Arg(10'080);

NYBDictionary dictionaryOf(int count, bool reversed) {
  NYBDictionary dictionary;
  for (int n = 0; n < count; ++n) {
    const int i = reversed ? count - 1 - n : n;
    dictionary.set("key-" + std::to_string(i), i);
  }
  return dictionary;
}

void BM_Dictionary_EqualReordered(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const NYBDictionary a = dictionaryOf(count, false), b = dictionaryOf(count, true);
  for (auto _ : state) benchmark::DoNotOptimize(a == b);
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Dictionary_EqualReordered)->Arg(100)->Arg(10'000);

void BM_Baseline_DictionaryEqualSameOrder(benchmark::State& state) {
  const auto count = static_cast<int>(state.range(0));
  const NYBDictionary a = dictionaryOf(count, false), b = dictionaryOf(count, false);
  for (auto _ : state) benchmark::DoNotOptimize(a == b);
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Baseline_DictionaryEqualSameOrder)->Arg(100)->Arg(10'000);

}  // namespace

BENCHMARK_MAIN();
