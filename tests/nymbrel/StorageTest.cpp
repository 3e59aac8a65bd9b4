// The nymbrel binary when the data directory lets it down: held by another
// process, refusing the archive's write, or holding a damaged archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <NymbrelCore/NYBDocuments.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "DevServer.h"
#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

// Nothing listens on port 1 of the loopback: every record stays queued.
std::vector<std::string> offlineSubmit(const fs::path& data) {
  return withUser({"submit", "sleep", "--deep", "80"}, "http://127.0.0.1:1/v1", data);
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
  EXPECT_THAT(run.err,
              HasSubstr("nymbrel: could not save the session to " + archive.string() + ": "));
  EXPECT_THAT(run.err, HasSubstr("; 1 item is not queued for a later run\n"));
  EXPECT_THAT(run.err, Not(HasSubstr("queued;")));
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
  std::ifstream file(kept, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "not an archive at all");
  run = runTool({"queue", "--data-dir", data.path().string()});
  EXPECT_THAT(run.out,
              HasSubstr("Damaged archives kept for recovery: 1\n  " + kept + " (21 bytes)\n"));
}

}  // namespace
}  // namespace nyb::test
