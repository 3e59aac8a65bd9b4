// A real temporary directory for a test, removed with everything in it when the
// object goes out of scope.
#pragma once

#include <filesystem>

namespace nyb::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace nyb::test
