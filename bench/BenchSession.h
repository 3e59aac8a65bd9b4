// What the session benchmarks share: a documents directory of the program's
// own (removed at exit), weight records to queue, and a started session with
// a backlog. Main thread only.
#pragma once

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "NymbrelCore/NymbrelCore.h"
#include "session/SessionTesting.h"

namespace nyb::bench {

inline const std::filesystem::path& documents() {
  static const std::filesystem::path path = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "nyb-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    NYBDocuments::setDocumentsDirectory(pattern);
    std::atexit([] { std::filesystem::remove_all(documents()); });
    return std::filesystem::path(pattern);
  }();
  return path;
}

inline std::shared_ptr<NYBWeight> weight(long index) {
  auto record = std::make_shared<NYBWeight>();
  record->setActivityID("bench-" + std::to_string(index));
  record->setTimestamp(NYBDate(1'456'841'109 + static_cast<double>(index)));
  record->setWeight(60.0 + static_cast<double>(index % 400) / 10.0);
  record->setComment("morning, before breakfast");
  return record;
}

inline std::vector<std::shared_ptr<NYBRecord>> records(long count) {
  std::vector<std::shared_ptr<NYBRecord>> made;
  made.reserve(static_cast<std::size_t>(count));
  for (long i = 0; i < count; ++i) made.push_back(weight(i));
  return made;
}

// A started session whose user has `queued` records waiting, saved once. With
// `idle` false a record is marked in flight, so that submissions only queue.
inline std::shared_ptr<NYBSession> sessionWith(long queued, bool idle = false) {
  documents();
  auto reachability = std::make_shared<NYBFakeReachabilitySource>(kNYBReachabilityFlagsReachable);
  auto session = NYBSession::sessionWithConfiguration({reachability});
  if (!idle) nyb::session::Testing::setProcessingRecord(*session, weight(-1));
  session->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  session->sessionData()->addRecords(records(queued));
  session->saveSessionData();
  session->waitForArchiveWrites();
  return session;
}

inline void finish(const std::shared_ptr<NYBSession>& session) {
  session->waitForArchiveWrites();
  session->endSession();
  nyb::session::Testing::setProcessingRecord(*session, nullptr);
}

// Loads the session's archive once per iteration.
inline void loadArchiveLoop(benchmark::State& state, const std::shared_ptr<NYBSession>& session) {
  for (auto _ : state) {
    session->loadSession();
    benchmark::DoNotOptimize(session->sessionData());
  }
  state.counters["records"] =
      static_cast<double>(session->sessionData()->records().array()->size());
}

}  // namespace nyb::bench
