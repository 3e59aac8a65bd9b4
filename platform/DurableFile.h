// File helpers for what the library keeps on disk (the session archive, the
// photos waiting to be uploaded): both hold an access token and health data,
// so files are made with mode 0600 and directories with mode 0700, and a file
// is replaced durably, not only atomically.
// Callable from any thread; two writers of the same path at once leave one of
// the two contents in place.
#pragma once

#include <filesystem>
#include <string_view>
#include <system_error>

namespace nyb {

// Makes the directory and every missing parent, each new one with mode 0700
// (existing ones are left as they are). True when the path is a directory
// afterwards; otherwise `error` says why.
bool createPrivateDirectories(const std::filesystem::path& directory, std::error_code& error);

// Replaces the file at `path` with `bytes`: a temporary file in the same
// directory (mode 0600) is written, flushed to disk, renamed over `path`, and
// the directory is flushed too. Afterwards, even after a crash or power cut,
// the file holds either its old content or exactly the new bytes, never a
// mixture. The directory must exist. On failure the temporary file is
// removed, `path` is untouched, and `error` says why; the one exception is a
// failed flush of the directory after the rename, reported as a failure too,
// when the new content is in place but may not survive a crash.
bool writeFileDurably(const std::filesystem::path& path, std::string_view bytes,
                      std::error_code& error);

// Flushes the directory's entries (a rename or unlink in it) to disk.
bool syncDirectory(const std::filesystem::path& directory, std::error_code& error);

// Opens (making it with mode 0600 if missing) the file at `path` and takes an
// exclusive advisory lock (flock) on it without waiting. Returns the open
// descriptor, which holds the lock until it is closed (or the process ends,
// however it ends); -1 on failure, with `error` set: EWOULDBLOCK when another
// open of the file holds the lock.
int lockFileExclusively(const std::filesystem::path& path, std::error_code& error);

}  // namespace nyb
