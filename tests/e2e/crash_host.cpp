// A host application for the crash test, run as a process of its own. Uploads go to the base URL
// in NYMBREL_BASE_URL, which the test points at a closed port, so every record stays queued.
// With NYB_CRASH_KEY set (its first 32 bytes are the key), the files are kept encrypted.
//
//   nyb_crash_host submit <documents> <tag> <seed>
//     Continues the archived session (or starts one), then submits records <tag>-0, <tag>-1, ...
//     in bursts, some with a photo, and after each burst's archive writes prints "saved <n>":
//     every record up to <tag>-<n> is then on disk. Each burst first drops one queued photo, as
//     the session does once a photo is sent, so that kills also fall between a photo's removal
//     and the save without it. Runs until it is killed.
//   nyb_crash_host load <documents>
//     Loads the session and prints "id <activity ID>" for each queued record,
//     "photo-missing <name>" for each photo whose file is gone or does not open, "log <line>"
//     for each log line but the first (the library description), "orphan <name>" for each image
//     file no entry names, then "loaded <count>"; "in-use <directory>" and exit 3 when another
//     process holds the directory.
//   nyb_crash_host hold <documents>
//     Queues one record, prints "ready" once it is on disk and keeps the session until killed.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <string>

#include "NymbrelCore/NymbrelCore.h"
#include "session/SessionTesting.h"

namespace {

using namespace nyb;

std::shared_ptr<NYBSession> startSession() {
  auto reachability = std::make_shared<NYBFakeReachabilitySource>(kNYBReachabilityFlagsReachable);
  return NYBSession::sessionWithConfiguration({reachability});
}

int submit(const std::string& tag, unsigned seed) {
  // Every upload fails; the log of each would only drown the test's output.
  NYBSetPlatformLogSink([](std::string_view) {});
  auto session = startSession();
  if (!session->sessionData()) {
    session->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  }
  std::cout << "ready" << std::endl;
  std::mt19937 random(seed);
  for (long next = 0;;) {
    if (const auto& data = session->sessionData(); data && data->hasImages()) {
      const NYBDynamicValue sent = data->imageFilenames().dictionary()->begin()->first;
      data->removeImageForRecord(sent.objectAs<NYBRecord>());
    }
    const long burst = 1 + static_cast<long>(random() % 8);
    for (long i = 0; i < burst; ++i, ++next) {
      auto record = std::make_shared<NYBWeight>();
      record->setActivityID(tag + "-" + std::to_string(next));
      record->setTimestamp(NYBDate(1'456'841'109 + static_cast<double>(next)));
      record->setWeight(60.0 + static_cast<double>(next % 400) / 10.0);
      if (next % 10 == 3) {
        std::vector<std::uint8_t> pixels(16 * 16 * 4, static_cast<std::uint8_t>(next));
        session->submitRecord(record, std::make_shared<NYBImage>(16, 16, std::move(pixels)));
      } else {
        session->submitRecord(record);
      }
    }
    const bool saved = session->waitForArchiveWrites(std::chrono::seconds(60));
    std::cout << (saved ? "saved " + std::to_string(next - 1) : "stuck") << std::endl;
    if (!saved) return 1;
  }
}

int hold() {
  auto session = startSession();
  session->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  // Nothing is sent.
  nyb::session::Testing::setProcessingRecord(*session, std::make_shared<NYBWeight>());
  auto record = std::make_shared<NYBWeight>();
  record->setActivityID("held");
  session->submitRecord(record);
  if (!session->waitForArchiveWrites(std::chrono::seconds(60))) return 1;
  std::cout << "ready" << std::endl;
  for (;;) ::pause();
}

int load(const std::string& documents) {
  // Loading logs on this thread. The session also sends its queue's head at
  // once, whatever the network's state, and that upload's failure is logged
  // on the transport's thread: it is not part of what loading reports.
  std::vector<std::string> logged;
  NYBSetPlatformLogSink([&logged](std::string_view text) {
    if (NYBRunLoop::isMainThread()) logged.emplace_back(text);
  });
  std::shared_ptr<NYBSession> session;
  try {
    session = startSession();
  } catch (const NYBDocumentsDirectoryInUseException& busy) {
    std::cout << "in-use " << busy.directory() << std::endl;
    return 3;
  }
  NYBSetPlatformLogSink(nullptr);
  std::set<std::string> named;
  std::size_t count = 0;
  if (auto data = session->sessionData()) {
    for (const NYBDynamicValue& each : *data->records().array()) {
      std::cout << "id " << each.objectAs<NYBRecord>()->activityID().description() << std::endl;
      ++count;
    }
    for (const auto& [record, name] : *data->imageFilenames().dictionary()) {
      auto path = data->pathForImageName(name.string());
      if (!path || !std::filesystem::exists(*path) ||
          !data->imageForRecord(record.objectAs<NYBRecord>()))
        std::cout << "photo-missing " << name.description() << std::endl;
      named.insert(name.description());
    }
  }
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(documents + "/images", error)) {
    const std::string name = entry.path().filename().string();
    if (named.count(name) == 0) std::cout << "orphan " << name << std::endl;
  }
  for (std::size_t i = 1; i < logged.size(); ++i) std::cout << "log " << logged[i] << std::endl;
  std::cout << "loaded " << count << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (const char* base = std::getenv("NYMBREL_BASE_URL")) NYBSetRequestBaseURL(base);
  if (argc >= 3) NYBDocuments::setDocumentsDirectory(argv[2]);
  if (const char* key = std::getenv("NYB_CRASH_KEY")) {
    NYBSessionKey::setKey(std::span(reinterpret_cast<const std::uint8_t*>(key), 32));
  }
  const std::string mode = argc >= 2 ? argv[1] : "";
  if (mode == "submit" && argc == 5) {
    return submit(argv[3], static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10)));
  }
  if (mode == "load" && argc == 3) return load(argv[2]);
  if (mode == "hold" && argc == 3) return hold();
  std::fputs("usage: nyb_crash_host submit <documents> <tag> <seed> | load <documents>\n", stderr);
  return 2;
}
