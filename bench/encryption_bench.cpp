// What the key costs: SaveArchive/N/1 and LoadArchive/N/1 (the session's files
// under a key) beside SaveArchive/N/0 and LoadArchive/N/0 (plain files), the
// same session of N queued records in the same run. A save is the whole of
// it (snapshot, archive, seal, durable write, waited for); a load reads,
// opens and decodes the archive. Each pair runs interleaved, plain then keyed,
// repeated, so that a noisy machine shifts both alike.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "BenchSession.h"

namespace {

using namespace nyb;
using namespace nyb::bench;
namespace fs = std::filesystem;

void useKey(bool keyed) {
  if (!keyed) {
    NYBSessionKey::clearKeys();
    return;
  }
  std::vector<std::uint8_t> key(NYBSessionKey::kKeySize);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(i * 7 + 1);
  NYBSessionKey::setKey(key);
}

void finishKeyed(const std::shared_ptr<NYBSession>& session) {
  finish(session);
  NYBSessionKey::clearKeys();
}

void SaveArchive(benchmark::State& state) {
  useKey(state.range(1) != 0);
  auto session = sessionWith(state.range(0));
  for (auto _ : state) {
    session->saveSessionData();
    session->waitForArchiveWrites();
  }
  state.counters["bytes"] = static_cast<double>(fs::file_size(documents() / "sessionData"));
  finishKeyed(session);
}

void LoadArchive(benchmark::State& state) {
  useKey(state.range(1) != 0);
  auto session = sessionWith(state.range(0));
  loadArchiveLoop(state, session);
  finishKeyed(session);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // Registered by hand so that plain and keyed alternate.
  for (int round = 0; round < 3; ++round) {
    for (long keyed : {0L, 1L}) {
      benchmark::RegisterBenchmark("SaveArchive", SaveArchive)
          ->Args({100'000, keyed})
          ->Unit(benchmark::kMillisecond)
          ->Iterations(5);
    }
    for (long keyed : {0L, 1L}) {
      benchmark::RegisterBenchmark("LoadArchive", LoadArchive)
          ->Args({100'000, keyed})
          ->Unit(benchmark::kMillisecond)
          ->Iterations(5);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
