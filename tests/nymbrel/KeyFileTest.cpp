// The nymbrel binary with a key file: what it queues is encrypted, and a
// missing, wrong or unusable key stops it before it reads or replaces the
// archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(NymbrelKeyFile, AnEncryptedArchiveOpensOnlyWithItsKey) {
  TempDir data;
  const fs::path archive = data.path() / "sessionData";
  const fs::path key = data.path() / "key.hex";
  const fs::path other = data.path() / "other.key";
  std::ofstream(key) << std::string(64, 'a') << "\n";
  std::ofstream(other, std::ios::binary) << std::string(32, 'b');

  // Nothing listens on port 1 of the loopback: the record stays queued.
  const std::map<std::string, std::string> right = {{"NYMBREL_KEY_FILE", key.string()}},
                                           wrong = {{"NYMBREL_KEY_FILE", other.string()}};
  const std::vector<std::string> submit = withUser(
      {"submit", "sleep", "--deep", "80"}, "http://127.0.0.1:1/v1", data.path(), kUser, "tok-sec");
  ToolRun run = runTool(submit, right);
  ASSERT_EQ(run.status, 3) << run.err;
  const std::string sealed = bytesOf(archive);
  EXPECT_EQ(sealed.find("tok-sec"), std::string::npos);

  const std::vector<std::string> queue = {"queue", "--data-dir", data.path().string()};
  run = runTool(queue);
  EXPECT_EQ(run.status, 8);
  EXPECT_THAT(run.err, HasSubstr("is encrypted: give its key with --key-file"));
  run = runTool(queue, wrong);
  EXPECT_EQ(run.status, 8);
  EXPECT_THAT(run.err, HasSubstr("written with another key"));
  // A session for the same user with the wrong key must not set the queue aside.
  EXPECT_EQ(runTool(submit, wrong).status, 8);
  EXPECT_EQ(bytesOf(archive), sealed);
  std::ofstream(other) << "not a key\n";
  run = runTool(queue, wrong);
  EXPECT_EQ(run.status, 8);
  EXPECT_THAT(run.err, HasSubstr("holds no key"));
  run = runTool(queue, right);
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
