#include "support/TempDir.h"

#include <stdlib.h>

#include <stdexcept>
#include <string>
#include <system_error>

namespace nyb::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "nymbrel-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory");
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace nyb::test
