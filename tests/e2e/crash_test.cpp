// Crash safety of the archive: a host process submits records continuously
// and is killed with SIGKILL at random moments; after each kill a new process
// loads the archive. It must always load, it must hold every record whose
// save the host had seen finish, every photo it names must have its file and
// no photo file may be left that it does not name. The files are kept encrypted
// under a key, so every write seals and every load opens them.
// NYB_CRASH_ITERATIONS sets the number of kills (50 by default).
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Nothing listens on port 1 of the loopback: every upload is refused at once, so every record
// stays queued.
void uploadsGoNowhere() { ::setenv("NYMBREL_BASE_URL", "http://127.0.0.1:1/v1", 1); }

std::size_t temporaryFilesIn(const fs::path& directory) {
  return std::ranges::count_if(fs::directory_iterator(directory), [](const auto& entry) {
    return entry.path().filename().string().starts_with(".sessionData.");
  });
}

TEST(CrashSafety, EveryFinishedSaveSurvivesAKillAtAnyMoment) {
  TempDir documents;
  uploadsGoNowhere();
  ::setenv("NYB_CRASH_KEY", "a key of thirty-two bytes, at least", 1);
  std::mt19937 random(20161122);
  std::set<std::string> confirmed;
  std::size_t killsMidWrite = 0, loaded = 0;
  const char* wanted = std::getenv("NYB_CRASH_ITERATIONS");
  const int kills = wanted != nullptr && std::atoi(wanted) > 0 ? std::atoi(wanted) : 50;

  for (int run = 0; run < kills; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    const std::string tag = "r" + std::to_string(run);
    ChildProcess host(
        {NYB_CRASH_HOST_PATH, "submit", documents.path().string(), tag, std::to_string(random())});
    ASSERT_EQ(host.readLine(30s), "ready");
    // The kill falls anywhere: before the first save, in the middle of a
    // write, between bursts.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 250'000));
    host.kill(SIGKILL);
    long lastSaved = -1;
    std::istringstream output(host.finish(5s).out);
    for (std::string line; std::getline(output, line);) {
      if (line.rfind("saved ", 0) == 0) lastSaved = std::stol(line.substr(6));
      EXPECT_NE(line, "stuck");
    }
    for (long i = 0; i <= lastSaved; ++i) confirmed.insert(tag + "-" + std::to_string(i));
    killsMidWrite += temporaryFilesIn(documents.path());

    ChildProcess loader({NYB_CRASH_HOST_PATH, "load", documents.path().string()});
    std::set<std::string> ids;
    std::optional<std::string> line;
    while ((line = loader.readLine(60s)) && line->rfind("loaded ", 0) != 0) {
      if (line->rfind("id ", 0) == 0) ids.insert(line->substr(3));
      for (const char* wrong : {"log Caught", "photo-missing", "orphan"})
        EXPECT_FALSE(line->starts_with(wrong)) << *line;
    }
    ASSERT_TRUE(line.has_value()) << "the loader did not finish";
    EXPECT_EQ(loader.wait(), 0);
    for (const std::string& id : confirmed) {
      ASSERT_EQ(ids.count(id), 1U) << id << ": its save had finished";
    }
    EXPECT_EQ(temporaryFilesIn(documents.path()), 0U);
    loaded = ids.size();
  }
  std::ifstream archive(documents.path() / "sessionData", std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(archive), {}).find("tok1"),
            std::string::npos)
      << "the archive is not encrypted";
  std::cout << "[ crash    ] " << kills << " kills, " << killsMidWrite
            << " in the middle of a write; " << confirmed.size()
            << " records confirmed saved, all present; " << loaded << " in the last archive\n";
  ::unsetenv("NYB_CRASH_KEY");
}

std::map<std::string, std::string> filesIn(const fs::path& directory) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    files[entry.path().string()] = std::string(std::istreambuf_iterator<char>(file), {});
  }
  return files;
}

TEST(CrashSafety, ASecondProcessIsRefusedTheDocumentsDirectoryAndTouchesNothing) {
  TempDir documents;
  uploadsGoNowhere();
  ChildProcess holder({NYB_CRASH_HOST_PATH, "hold", documents.path().string()});
  ASSERT_EQ(holder.readLine(30s), "ready");
  // What a write of the holder in flight would look like.
  std::ofstream(documents.path() / ".sessionData.Ab12Cd") << "half a write";
  const auto before = filesIn(documents.path());

  ChildProcess second({NYB_CRASH_HOST_PATH, "load", documents.path().string()});
  EXPECT_EQ(second.readLine(30s), "in-use " + documents.path().string());
  EXPECT_EQ(second.wait(), 3);
  EXPECT_EQ(filesIn(documents.path()), before);

  // The lock goes with its process, however it ends.
  holder.kill(SIGKILL);
  holder.wait();
  ChildProcess next({NYB_CRASH_HOST_PATH, "load", documents.path().string()});
  EXPECT_EQ(next.readLine(30s), "id held");
  EXPECT_EQ(next.readLine(30s), "loaded 1");
  EXPECT_EQ(next.wait(), 0);
  EXPECT_FALSE(fs::exists(documents.path() / ".sessionData.Ab12Cd"));
}

}  // namespace
}  // namespace nyb::test
