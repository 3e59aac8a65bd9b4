#include "NymbrelCore/NYBDocuments.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBException.h"
#include "platform/DurableFile.h"
#include "platform/Log.h"

namespace nyb {

namespace {

struct DocumentsState {
  std::mutex mutex;
  std::string configured;  // empty: the default
};

DocumentsState& state() {
  static auto* const documents = new DocumentsState();
  return *documents;
}

std::string programName() {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error && !executable.filename().empty()) return executable.filename().string();
  const char* shortName = program_invocation_short_name;
  if (shortName != nullptr && *shortName != '\0') return shortName;
  return "NymbrelCore";
}

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "/";
}

// The lock on one directory; closing the descriptor lets go of it.
struct DirectoryLock {
  int fd = -1;
  ~DirectoryLock() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

std::string NYBDocuments::defaultDocumentsDirectory() {
  // Relative values are invalid and ignored, as the base-directory rules say.
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  std::filesystem::path base = dataHome != nullptr && dataHome[0] == '/'
                                   ? std::filesystem::path(dataHome)
                                   : std::filesystem::path(homeDirectory()) / ".local" / "share";
  return (base / programName()).string();
}

std::string NYBDocuments::documentsDirectory() {
  std::string path;
  {
    DocumentsState& documents = state();
    std::lock_guard lock(documents.mutex);
    path = documents.configured.empty() ? defaultDocumentsDirectory() : documents.configured;
  }
  // One stat when it exists already.
  std::error_code error;
  createPrivateDirectories(path, error);
  return path;
}

void NYBDocuments::setDocumentsDirectory(std::string path) {
  DocumentsState& documents = state();
  std::lock_guard lock(documents.mutex);
  documents.configured = std::move(path);
}

std::shared_ptr<const void> NYBDocuments::holdDocumentsDirectory() {
  const std::string directory = documentsDirectory();
  // One flock per process and directory: a second open of the lock file would
  // conflict with the first even within this process.
  static std::mutex mutex;
  static auto* const held = new std::map<std::string, std::weak_ptr<const DirectoryLock>>();
  std::lock_guard lock(mutex);
  const std::string key = std::filesystem::absolute(directory).lexically_normal().string();
  if (auto existing = (*held)[key].lock()) return existing;
  std::error_code error;
  const int fd = lockFileExclusively(std::filesystem::path(directory) / "sessionData.lock", error);
  if (fd < 0) {
    if (error == std::errc::operation_would_block) {
      throw NYBDocumentsDirectoryInUseException(directory);
    }
    log("NYBSession: Unable to lock {}: {}", directory, error.message());
    return nullptr;
  }
  auto hold = std::make_shared<DirectoryLock>();
  hold->fd = fd;
  (*held)[key] = hold;
  return hold;
}

}  // namespace nyb
