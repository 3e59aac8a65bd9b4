// The documents directory and the durable file helpers: where the library
// keeps its files, with which modes, and that a replaced file is never seen
// half written.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

#include "NymbrelCore/NYBDocuments.h"
#include "platform/DurableFile.h"
#include "support/TempDir.h"

namespace nyb {
namespace {

namespace fs = std::filesystem;

// The test program's own name, which the default location ends with.
constexpr const char* kProgram = "platform_tests";

unsigned modeOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return 0;
  return status.st_mode & 07777;
}

std::string contentsOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Sets an environment variable for the scope, then restores it.
class EnvOverride {
 public:
  EnvOverride(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~EnvOverride() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(Documents, DefaultLocationFollowsTheDataHome) {
  EnvOverride home("HOME", "/home/someone");
  {
    EnvOverride dataHome("XDG_DATA_HOME", "/srv/data");
    EXPECT_EQ(NYBDocuments::defaultDocumentsDirectory(), std::string("/srv/data/") + kProgram);
  }
  {
    EnvOverride dataHome("XDG_DATA_HOME", "relative/data");  // not absolute: ignored
    EXPECT_EQ(NYBDocuments::defaultDocumentsDirectory(),
              std::string("/home/someone/.local/share/") + kProgram);
  }
  {
    EnvOverride dataHome("XDG_DATA_HOME", nullptr);
    EXPECT_EQ(NYBDocuments::defaultDocumentsDirectory(),
              std::string("/home/someone/.local/share/") + kProgram);
  }
}

TEST(Documents, TheDirectoryIsMadePrivateOnFirstUse) {
  test::TempDir temp;
  const fs::path documents = temp.path() / "app" / "Documents";
  NYBDocuments::setDocumentsDirectory(documents.string());
  EXPECT_EQ(NYBDocuments::documentsDirectory(), documents.string());
  EXPECT_TRUE(fs::is_directory(documents));
  EXPECT_EQ(modeOf(documents), 0700U);
  EXPECT_EQ(modeOf(temp.path() / "app"), 0700U);

  // Without a host setting, the default location again.
  {
    EnvOverride dataHome("XDG_DATA_HOME", (temp.path() / "data").c_str());
    NYBDocuments::setDocumentsDirectory("");
    EXPECT_EQ(NYBDocuments::documentsDirectory(), (temp.path() / "data" / kProgram).string());
    EXPECT_TRUE(fs::is_directory(temp.path() / "data" / kProgram));
  }
}

TEST(DurableFile, ReplacesByRenameWithPrivateModeAndLeavesNoTemporaryFile) {
  test::TempDir temp;
  const fs::path file = temp.path() / "sessionData";
  const mode_t oldMask = ::umask(0);  // the most permissive umask must not widen the mode
  std::error_code error;
  ASSERT_TRUE(writeFileDurably(file, "first", error)) << error.message();
  ::umask(oldMask);
  EXPECT_EQ(contentsOf(file), "first");
  EXPECT_EQ(modeOf(file), 0600U);

  // A reader that opened the old file keeps reading the old bytes: the new
  // content arrived as a new file, not by rewriting the old one in place.
  std::ifstream reader(file, std::ios::binary);
  std::string large(1 << 20, 'x');
  ASSERT_TRUE(writeFileDurably(file, large, error)) << error.message();
  std::string seen((std::istreambuf_iterator<char>(reader)), std::istreambuf_iterator<char>());
  EXPECT_EQ(seen, "first");
  EXPECT_EQ(contentsOf(file), large);

  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(temp.path())) ++entries;
  EXPECT_EQ(entries, 1U);
}

TEST(DurableFile, FailuresLeaveTheOldFileAndNoDebris) {
  test::TempDir temp;
  std::error_code error;
  EXPECT_FALSE(writeFileDurably(temp.path() / "missing" / "file", "x", error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);

  // A directory in the way of the rename.
  fs::create_directory(temp.path() / "taken");
  fs::create_directory(temp.path() / "taken" / "child");
  EXPECT_FALSE(writeFileDurably(temp.path() / "taken", "x", error));
  EXPECT_TRUE(error);
  EXPECT_TRUE(fs::is_directory(temp.path() / "taken" / "child"));
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(temp.path())) ++entries;
  EXPECT_EQ(entries, 1U);
}

TEST(DurableFile, PrivateDirectoriesAreMadeWithEveryMissingParent) {
  test::TempDir temp;
  fs::create_directory(temp.path() / "shared");
  fs::permissions(temp.path() / "shared", fs::perms(0755));
  std::error_code error;
  const fs::path deep = temp.path() / "shared" / "a" / "b";
  EXPECT_TRUE(createPrivateDirectories(deep, error)) << error.message();
  EXPECT_EQ(modeOf(temp.path() / "shared"), 0755U);  // existing ones are left alone
  EXPECT_EQ(modeOf(temp.path() / "shared" / "a"), 0700U);
  EXPECT_EQ(modeOf(deep), 0700U);
  EXPECT_TRUE(createPrivateDirectories(deep, error));  // already there

  std::ofstream(temp.path() / "plain") << "file";
  EXPECT_FALSE(createPrivateDirectories(temp.path() / "plain" / "below", error));
  EXPECT_TRUE(error);
  EXPECT_FALSE(createPrivateDirectories(temp.path() / "plain", error));
}

}  // namespace
}  // namespace nyb
