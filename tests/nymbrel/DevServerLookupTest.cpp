// Where an installed nymbrel finds nymbrel-devserver: beside itself or on
// PATH, never where this build happened to make it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RunTool.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(DevServerLookup, BesideTheProgramOrOnPathOnly) {
  TempDir installed;
  auto bin = installed.path() / "bin";
  std::filesystem::create_directory(bin);
  std::filesystem::copy_file(NYB_NYMBREL_PATH, bin / "nymbrel");
  auto demo = [&](const std::string& path) {
    return runProgram({(bin / "nymbrel").string(), "demo"},
                      std::vector<std::string>{"PATH=" + path});
  };

  ProgramRun alone = demo("/nonexistent");
  EXPECT_EQ(alone.status, 5) << alone.out;
  EXPECT_NE(alone.err.find("cannot find nymbrel-devserver next to nymbrel or on PATH"),
            std::string::npos)
      << alone.err;
  // Named, it is found anywhere.
  ProgramRun named =
      runProgram({(bin / "nymbrel").string(), "demo", "--devserver", NYB_DEVSERVER_PATH},
                 std::vector<std::string>{"PATH=/nonexistent"});
  EXPECT_EQ(named.status, 0) << named.err;
  EXPECT_THAT(named.out, HasSubstr("started nymbrel-devserver at http://127.0.0.1:"));
  EXPECT_THAT(named.out, HasSubstr("\neverything arrived: 8 records and 1 photo\n"));

  auto onPath = std::filesystem::path(NYB_DEVSERVER_PATH).parent_path().string();
  EXPECT_EQ(demo("/nonexistent:" + onPath).status, 0);

  std::filesystem::copy_file(NYB_DEVSERVER_PATH, bin / "nymbrel-devserver");
  ProgramRun beside = demo("/nonexistent");
  EXPECT_EQ(beside.status, 0) << beside.err;
}

}  // namespace
}  // namespace nyb::test
