#include "platform/DurableFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace nyb {

namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

bool isDirectory(const std::filesystem::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool syncDirectoryEntries(const std::filesystem::path& directory) {
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = ::fsync(fd) == 0;
  const int saved = errno;
  ::close(fd);
  errno = saved;
  return synced;
}

}  // namespace

bool createPrivateDirectories(const std::filesystem::path& directory, std::error_code& error) {
  error.clear();
  if (directory.empty()) {
    error = std::make_error_code(std::errc::invalid_argument);
    return false;
  }
  if (isDirectory(directory)) return true;
  // Every prefix, outermost first, so that each missing one is made with 0700.
  std::filesystem::path prefix;
  for (const auto& part : directory.lexically_normal()) {
    prefix /= part;
    if (part.empty() || isDirectory(prefix)) continue;
    if (::mkdir(prefix.c_str(), 0700) != 0 && !(errno == EEXIST && isDirectory(prefix))) {
      error = errno == EEXIST ? std::make_error_code(std::errc::not_a_directory) : lastError();
      return false;
    }
  }
  return true;
}

bool writeFileDurably(const std::filesystem::path& path, std::string_view bytes,
                      std::error_code& error) {
  error.clear();
  if (path.filename().empty()) {
    error = std::make_error_code(std::errc::invalid_argument);
    return false;
  }
  const std::filesystem::path directory =
      path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  // Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) on "." + string.
  std::string name = ".";
  name += path.filename().string();
  name += ".XXXXXX";
  const std::string pattern = (directory / name).string();
  std::vector<char> temporary(pattern.begin(), pattern.end());
  temporary.push_back('\0');

  // mkostemp makes the file with mode 0600, whatever the umask.
  const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) {
    error = lastError();
    return false;
  }
  bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
  if (!ok) error = lastError();
  if (::close(fd) != 0 && ok) {
    ok = false;
    error = lastError();
  }
  if (ok && ::rename(temporary.data(), path.c_str()) != 0) {
    ok = false;
    error = lastError();
  }
  if (!ok) {
    ::unlink(temporary.data());
    return false;
  }
  // The rename itself is durable only once the directory is on disk.
  if (!syncDirectoryEntries(directory)) {
    error = lastError();
    return false;
  }
  return true;
}

bool syncDirectory(const std::filesystem::path& directory, std::error_code& error) {
  error.clear();
  if (syncDirectoryEntries(directory)) return true;
  error = lastError();
  return false;
}

int lockFileExclusively(const std::filesystem::path& path, std::error_code& error) {
  error.clear();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) {
    error = lastError();
    return -1;
  }
  int locked;
  do {
    locked = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  if (locked != 0) {
    error = lastError();
    ::close(fd);
    return -1;
  }
  return fd;
}

}  // namespace nyb
