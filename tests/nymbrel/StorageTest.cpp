// The nymbrel binary when the data directory lets it down (held by another process, refusing
// the archive's write, or holding a damaged archive), and with a key file: what it queues is
// encrypted, and a missing, wrong or unusable key stops it before it reads or replaces the
// archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <NymbrelCore/NYBDocuments.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "DevServer.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

// Nothing listens on port 1 of the loopback: every record stays queued.
std::vector<std::string> offlineSubmit(const fs::path& data, const std::string& token = kToken) {
  return withUser({"submit", "sleep", "--deep", "80"}, "http://127.0.0.1:1/v1", data, kUser, token);
}

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(NymbrelStorage, ABusyDirectoryAndAFailedSaveHaveTheirOwnExitCodes) {
  TempDir data;
  const fs::path archive = data.path() / "sessionData";
  {
    // This test process holds the directory, as a running nymbrel would.
    NYBDocuments::setDocumentsDirectory(data.path().string());
    auto hold = NYBDocuments::holdDocumentsDirectory();
    NYBDocuments::setDocumentsDirectory("");
    ToolRun run = runTool(offlineSubmit(data.path()));
    EXPECT_EQ(run.status, 7) << run.err;
    EXPECT_EQ(run.err, "nymbrel: another process is using " + data.path().string() + "\n");
    EXPECT_FALSE(fs::exists(archive));
  }

  // The archive's place is taken by a directory: no save can succeed.
  fs::create_directories(archive / "in-the-way");
  ToolRun run = runTool(offlineSubmit(data.path()));
  EXPECT_EQ(run.status, 6) << run.err;
  EXPECT_THAT(
      run.err,
      AllOf(HasSubstr("nymbrel: could not save the session to " + archive.string() + ": "),
            HasSubstr("; 1 item is not queued for a later run\n"), Not(HasSubstr("queued;"))));
}

TEST(NymbrelStorage, ADamagedArchiveIsReportedThenKeptAndListedByQueue) {
  TempDir data;
  const std::string archive = (data.path() / "sessionData").string();
  ToolRun run = runTool({"queue", "--data-dir", data.path().string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "No archive at " + archive + ": no session, nothing queued.\n");

  std::ofstream(archive) << "not an archive at all";
  run = runTool({"queue", "--json", "--data-dir", data.path().string()});
  EXPECT_EQ(run.status, 5);
  EXPECT_THAT(run.err, HasSubstr("nymbrel: the archive " + archive + " is damaged: "));
  // Without a user there is nothing to continue; with one, a new session replaces it.
  run = runTool({"submit", "sleep", "--deep", "1", "--data-dir", data.path().string()});
  EXPECT_EQ(run.status, 5) << run.err;
  run = runTool(offlineSubmit(data.path()));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.err, HasSubstr("is damaged: "));

  run = runTool({"queue", "--json", "--data-dir", data.path().string()});
  ASSERT_EQ(run.status, 0) << run.err;
  auto queue = parse(run.out);
  EXPECT_EQ(queue["records"].Size(), 1u);
  ASSERT_EQ(queue["damaged_archives"].Size(), 1u);
  const std::string kept = queue["damaged_archives"][0].GetString();
  EXPECT_EQ(bytesOf(kept), "not an archive at all");
  run = runTool({"queue", "--data-dir", data.path().string()});
  EXPECT_THAT(run.out,
              HasSubstr("Damaged archives kept for recovery: 1\n  " + kept + " (21 bytes)\n"));
}

TEST(NymbrelKeyFile, AnEncryptedArchiveOpensOnlyWithItsKey) {
  TempDir data;
  const fs::path archive = data.path() / "sessionData", key = data.path() / "key.hex",
                 other = data.path() / "other.key", none = data.path() / "none.key";
  std::ofstream(key) << std::string(64, 'a') << "\n";
  std::ofstream(other, std::ios::binary) << std::string(32, 'b');
  std::ofstream(none) << "not a key\n";
  auto keyed = [](const fs::path& file) {
    return std::map<std::string, std::string>{{"NYMBREL_KEY_FILE", file.string()}};
  };

  const std::vector<std::string> submit = offlineSubmit(data.path(), "tok-sec");
  ToolRun run = runTool(submit, keyed(key));
  ASSERT_EQ(run.status, 3) << run.err;
  const std::string sealed = bytesOf(archive);
  EXPECT_EQ(sealed.find("tok-sec"), std::string::npos);
  // A session for the same user with the wrong key must not set the queue aside.
  EXPECT_EQ(runTool(submit, keyed(other)).status, 8);
  EXPECT_EQ(bytesOf(archive), sealed);

  const std::vector<std::string> queue = {"queue", "--data-dir", data.path().string()};
  for (const auto& [environment, named] : {std::pair{std::map<std::string, std::string>{},
                                                     "is encrypted: give its key with --key-file"},
                                           std::pair{keyed(other), "written with another key"},
                                           std::pair{keyed(none), "holds no key"}}) {
    run = runTool(queue, environment);
    EXPECT_EQ(run.status, 8);
    EXPECT_THAT(run.err, HasSubstr(named));
  }
  run = runTool(queue, keyed(key));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("sleep"));
}

// The tool keeps a refused photo for import: the photo, not the sealed file.
TEST(NymbrelKeyFile, ARefusedPhotoIsKeptAsAPhoto) {
  DevServer server;
  TempDir data;
  const fs::path key = data.path() / "key";
  std::ofstream(key, std::ios::binary) << std::string(32, 'k');
  const std::string photo = writePng((data.path() / "meal.png").string(), 8, 6);
  ASSERT_TRUE(server.addFault(R"([{"delay_ms": 1, "count": 1}, {"status": 422, "count": 1}])"));
  ToolRun run = runTool(withUser(
      {"submit", "nutrition", "--meal", "dinner", "--image", photo, "--key-file", key.string()},
      server.baseURL(), data.path()));
  ASSERT_EQ(run.status, 1) << run.err;
  const std::string kept = parse(bytesOf(data.path() / "rejected.jsonl"))["image"].GetString();
  EXPECT_EQ(bytesOf(data.path() / kept).substr(1, 3), "PNG");
}

}  // namespace
}  // namespace nyb::test
