// What the key costs: SaveArchive/N/1 and LoadArchive/N/1 (the session's files
// under a key) beside SaveArchive/N/0 and LoadArchive/N/0 (plain files), the
// same session of N queued records in the same run. A save is the whole of
// it (snapshot, archive, seal, durable write, waited for); a load reads,
// opens and decodes the archive. Each pair runs interleaved, plain then keyed,
// repeated, so that a noisy machine shifts both alike.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "NymbrelCore/NymbrelCore.h"
#include "session/SessionTesting.h"

namespace {

using namespace nyb;
namespace fs = std::filesystem;

const fs::path& documents() {
  static const fs::path path = [] {
    std::string pattern = (fs::temp_directory_path() / "nyb-encryption-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    NYBDocuments::setDocumentsDirectory(pattern);
    std::atexit([] { fs::remove_all(documents()); });
    return fs::path(pattern);
  }();
  return path;
}

void useKey(bool keyed) {
  if (!keyed) {
    NYBSessionKey::clearKeys();
    return;
  }
  std::vector<std::uint8_t> key(NYBSessionKey::kKeySize);
  for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(i * 7 + 1);
  NYBSessionKey::setKey(key);
}

// A session of `count` queued records, saved once; nothing is sent.
std::shared_ptr<NYBSession> sessionWith(long count) {
  documents();
  auto reachability = std::make_shared<NYBFakeReachabilitySource>(kNYBReachabilityFlagsReachable);
  auto session = NYBSession::sessionWithConfiguration({reachability});
  nyb::session::Testing::setProcessingRecord(*session, std::make_shared<NYBWeight>());
  session->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  std::vector<std::shared_ptr<NYBRecord>> records;
  for (long i = 0; i < count; ++i) {
    auto record = std::make_shared<NYBWeight>();
    record->setActivityID("bench-" + std::to_string(i));
    record->setTimestamp(NYBDate(1'456'841'109 + static_cast<double>(i)));
    record->setWeight(60.0 + static_cast<double>(i % 400) / 10.0);
    record->setComment("morning, before breakfast");
    records.push_back(record);
  }
  session->sessionData()->addRecords(records);
  session->saveSessionData();
  session->waitForArchiveWrites();
  return session;
}

void finish(const std::shared_ptr<NYBSession>& session) {
  session->waitForArchiveWrites();
  session->endSession();
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
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
  finish(session);
}

void LoadArchive(benchmark::State& state) {
  useKey(state.range(1) != 0);
  auto session = sessionWith(state.range(0));
  for (auto _ : state) {
    session->loadSession();
    benchmark::DoNotOptimize(session->sessionData());
  }
  state.counters["records"] =
      static_cast<double>(session->sessionData()->records().array()->size());
  finish(session);
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
