// The session's archive: where it lives, loading it at start-up, and saving
// snapshots of the session data on the serial write queue with saves during a
// write folded into one more write.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDocuments.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "NymbrelCore/NYBSession.h"
#include "model/ArchiveElements.h"
#include "platform/Device.h"
#include "platform/DurableFile.h"
#include "platform/Log.h"
#include "platform/SealedFile.h"
#include "session/SessionInternal.h"

namespace nyb {

namespace session {

NYBDispatchQueue& archiveWriteQueue() {
  static NYBDispatchQueue* const queue = [] {
    std::string_view identifier = platform::libraryBundleIdentifier();
    // The library's reverse-domain prefix: its bundle identifier without the
    // last component.
    std::string_view prefix = identifier.substr(0, identifier.rfind('.'));
    return new NYBDispatchQueue(std::string(prefix) + ".sessionWrite");
  }();
  return *queue;
}

bool beginWriteOrRequest(std::atomic<bool>& inProgress, std::atomic<bool>& requested) {
  if (inProgress.load()) {
    requested.store(true);
    // The running write may have ended between the two lines above, before
    // it looked for a request: then whichever of it and this save takes the
    // request back acts on it.
    if (inProgress.load() || !requested.exchange(false)) return false;
  }
  inProgress.store(true);
  return true;
}

bool endWrite(std::atomic<bool>& inProgress, std::atomic<bool>& requested) {
  inProgress.store(false);
  return requested.exchange(false);
}

}  // namespace session

namespace {

std::filesystem::path archivePath() {
  return std::filesystem::path(NYBDocuments::documentsDirectory()) / "sessionData";
}

// What the write queue archives: a model copy of the session data that
// shares the queue's chunks, the other containers and the records with the
// live object. That is safe because none of them ever changes: containers are
// immutable values, the queue copies a chunk before changing a shared one, and
// a record is never changed in place once queued (the session queues its own
// copies and adds media to a copy). So the main thread pays for one pointer
// per chunk of the queue, not one per queued record.
std::shared_ptr<NYBSessionData> snapshotOf(const std::shared_ptr<NYBSessionData>& sessionData) {
  return sessionData ? sessionData->snapshot() : nullptr;
}

// A process killed in the middle of a write leaves its temporary file
// (".sessionData.XXXXXX", beside the archive) behind; nothing else would ever
// remove it. Called only while this session has no write of its own queued.
void removeStaleTemporaryFiles(const std::filesystem::path& archive) {
  const std::string prefix = "." + archive.filename().string() + ".";
  std::error_code error;
  std::filesystem::directory_iterator entries(archive.parent_path(), error);
  if (error) return;
  std::vector<std::filesystem::path> stale;
  for (const auto& entry : entries) {
    const std::string name = entry.path().filename().string();
    if (name.size() == prefix.size() + 6 && name.rfind(prefix, 0) == 0)
      stale.push_back(entry.path());
  }
  for (const auto& path : stale) std::filesystem::remove(path, error);
}

// The whole file, read in one go; a failure raises, as unarchiving nothing would.
NYBData readWholeFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  std::vector<std::uint8_t> bytes;
  // A directory opens too, and seeks to an end near 2^63: only a regular file
  // is read.
  std::error_code error;
  const std::streamoff size = std::filesystem::is_regular_file(path, error)
                                  ? static_cast<std::streamoff>(file.tellg())
                                  : -1;
  if (size < 0) file.setstate(std::ios::failbit);
  if (file) {
    bytes.resize(static_cast<std::size_t>(size));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  if (!file)
    throw NYBInvalidArgumentException("The archive at " + path.string() + " cannot be read");
  return NYBData(std::move(bytes));
}

NYBException damage(std::string reason) {
  return NYBException(std::string(kNYBInvalidUnarchiveOperationException), std::move(reason));
}

// How many damaged archives are kept beside the archive; older ones go.
constexpr std::size_t kKeptDamagedArchives = 3;

std::string utcTimeText() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &utc);
  return text;
}

// Moves the archive that failed to load to "sessionData.damaged-<UTC time>"
// (with "-02" to "-99" when that name is taken, so that names still sort by
// age), so that the data it holds can still be recovered, and drops all but
// the newest few such files. Returns the new name; absent with `error` set
// when the archive could not be moved (it is then where it was), absent
// without when it is gone already.
std::optional<std::filesystem::path> keepDamagedArchive(const std::filesystem::path& archive,
                                                        std::error_code& error) {
  const std::string base = archive.filename().string() + ".damaged-" + utcTimeText();
  std::filesystem::path kept;
  for (int attempt = 1;; ++attempt) {
    const std::string suffix =
        attempt == 1 ? "" : (attempt < 10 ? "-0" : "-") + std::to_string(attempt);
    kept = archive.parent_path() / (base + suffix);
    // link() never replaces an existing file, unlike rename().
    if (::link(archive.c_str(), kept.c_str()) == 0) break;
    if (errno == ENOENT && ::access(archive.c_str(), F_OK) != 0) return std::nullopt;
    if (errno != EEXIST || attempt == 99) {
      error = {errno, std::generic_category()};
      return std::nullopt;
    }
  }
  if (::unlink(archive.c_str()) != 0) {
    error = {errno, std::generic_category()};
    ::unlink(kept.c_str());
    return std::nullopt;
  }
  ::chmod(kept.c_str(), 0600);
  // Durable like every replacement of the archive: a crash after the write
  // that follows must not bring the damaged file back under the old name.
  syncDirectory(archive.parent_path(), error);
  error.clear();

  const std::string prefix = archive.filename().string() + ".damaged-";
  std::vector<std::filesystem::path> damaged;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(archive.parent_path(), ignored)) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) damaged.push_back(entry.path());
  }
  // The UTC time sorts as text; a suffix sorts after its bare name.
  std::sort(damaged.begin(), damaged.end());
  for (std::size_t i = 0; i + kKeptDamagedArchives < damaged.size(); ++i) {
    std::filesystem::remove(damaged[i], ignored);
  }
  return kept;
}

// One write of the write queue: the damaged archive moved aside first when
// there is one, then the snapshot archived and written durably. The damage
// flag is read and cleared here, behind every earlier write and deletion.
std::optional<NYBArchiveWriteFailure> writeArchive(const std::filesystem::path& path,
                                                   std::shared_ptr<NYBSessionData> snapshot,
                                                   std::atomic<bool>& damagedArchiveOnDisk) {
  std::error_code error;
  if (damagedArchiveOnDisk.load()) {
    std::optional<std::filesystem::path> kept = keepDamagedArchive(path, error);
    if (error) return NYBArchiveWriteFailure{path.string(), error, error.message()};
    damagedArchiveOnDisk.store(false);
    if (kept) log("NYBSession: Kept the damaged archive as {}", kept->string());
  }
  // The write queue's own buffer, kept from one write to the next: mapping in
  // fresh memory for every archive of a long queue cost more than the disk.
  // It is let go once the archive has shrunk well below it.
  static std::vector<std::uint8_t> bytes;
  static std::vector<std::uint8_t> sealedBytes;  // the same, under a key
  bool keyed = false;
  try {
    NYBKeyedArchiver::archiveRootObject(snapshot ? NYBDynamicValue(snapshot) : NYBDynamicValue(),
                                        bytes);
    keyed = sealed::sealIntoIfKeyed(bytes, sealed::kArchiveRole, sealedBytes);
  } catch (const std::exception& exception) {
    return NYBArchiveWriteFailure{path.string(), std::make_error_code(std::errc::invalid_argument),
                                  exception.what()};
  }
  snapshot.reset();
  const std::vector<std::uint8_t>& out = keyed ? sealedBytes : bytes;
  const bool written =
      writeFileDurably(path, {reinterpret_cast<const char*>(out.data()), out.size()}, error);
  constexpr std::size_t kKeptSlack = 1 << 20;
  if (bytes.capacity() > 4 * bytes.size() + kKeptSlack) std::vector<std::uint8_t>().swap(bytes);
  if (!keyed || sealedBytes.capacity() > 4 * sealedBytes.size() + kKeptSlack)
    std::vector<std::uint8_t>().swap(sealedBytes);
  if (!written) return NYBArchiveWriteFailure{path.string(), error, error.message()};
  return std::nullopt;
}

}  // namespace

NYBURL NYBSession::sessionDataURL() const {
  return NYBURL::fileURLWithPath(archivePath().string());
}

void NYBSession::loadSession() {
  const std::filesystem::path path = archivePath();
  // Files of this session's own writes in flight are not left over.
  const bool settled = !writeInProgress_.load() && archiveWorkPending_.load() == 0;
  if (settled) removeStaleTemporaryFiles(path);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    if (settled && !damagedArchiveOnDisk_.load()) NYBSessionData().removeOrphanImageFiles();
    return;
  }
  try {
    bool plain = false;
    // The queue's records stay encoded, in the file's (opened) bytes, until
    // each is first needed; their bytes are checked here all the same, so that
    // damage anywhere rejects the whole archive now.
    auto bytes = std::make_shared<const NYBData>(
        sealed::openOrRaise(readWholeFile(path), sealed::kArchiveRole, &plain));
    // A plain archive found while a key is set is written again encrypted,
    // with its photos, at once.
    const bool migrateToKey = plain && sealed::keyed();
    archive::DeferredArchive read = archive::unarchiveDeferring(*bytes, "records");
    const NYBDynamicValue& root = read.root;
    if (root.isAbsent() || root.isNull()) {
      sessionData_ = nullptr;
      damagedArchiveOnDisk_.store(false);
      if (settled) NYBSessionData().removeOrphanImageFiles();
      return;
    }
    auto restored = root.objectAs<NYBSessionData>();
    if (!restored) throw damage("The archive's root object is not session data");
    // The queue is sent as it is: anything in it but records is damage too.
    for (const NYBClass* each : read.classes) {
      if (each == nullptr || !each->isSubclassOfClass(NYBRecord::staticClass())) {
        throw damage("The archived queue holds a non-record");
      }
    }
    if (read.deferred) restored->setEncodedRecords(std::move(bytes), read.elements);
    sessionData_ = std::move(restored);
    damagedArchiveOnDisk_.store(false);
    if (settled) sessionData_->removeOrphanImageFiles();
    if (migrateToKey) {
      std::string failure;
      if (!sealed::resealDirectory(sessionData_->imageDirectory(), sealed::kPhotoRolePrefix,
                                   &failure))
        log("NYBSession: Unable to encrypt the photos: {}", failure);
      saveSessionData();
    }
  } catch (const NYBException& exception) {
    log("Caught decoding exception: {}", exception.description());
    damagedArchiveOnDisk_.store(true);
  } catch (const std::exception& exception) {
    log("Caught decoding exception: {}", exception.what());
    damagedArchiveOnDisk_.store(true);
  }
}

void NYBSession::saveSessionData() {
  if (!session::beginWriteOrRequest(writeInProgress_, writeRequested_)) return;
  auto task = session::BackgroundTask::begin();
  // A queued record that failed to decode when first read was dropped: the
  // archive on disk still holds it, and is kept aside before this write.
  if (sessionData_ && sessionData_->takeDamagedRecordCount() > 0) damagedArchiveOnDisk_.store(true);
  std::shared_ptr<NYBSessionData> snapshot = snapshotOf(sessionData_);
  std::vector<std::string> deletions =
      sessionData_ ? sessionData_->deferredImageDeletions() : std::vector<std::string>();
  auto self = std::static_pointer_cast<NYBSession>(shared_from_this());
  archiveWorkPending_.fetch_add(1);
  session::archiveWriteQueue().async([self = std::move(self), snapshot = std::move(snapshot),
                                      deletions = std::move(deletions), path = archivePath(),
                                      task = std::move(task)]() mutable {
    std::optional<NYBArchiveWriteFailure> failure =
        writeArchive(path, std::move(snapshot), self->damagedArchiveOnDisk_);
    const bool written = !failure.has_value();
    self->noteArchiveWrite(std::move(failure));
    self->archiveWriteCount_.fetch_add(1);
    const bool followUp = session::endWrite(self->writeInProgress_, self->writeRequested_);
    // The task ends before the main queue hears of the write, so that a
    // waiter there finds it ended; the follow-up save opens its own.
    task->end();
    // The session is let go on the main thread, where it lives; the follow-up
    // save, if asked for, snapshots the newest state there.
    NYBDispatchQueue::main().async(
        [self = std::move(self), followUp, written, deletions = std::move(deletions)]() mutable {
          const std::shared_ptr<NYBSession> owner = std::move(self);  // let go in the body
          // Photos dropped before this save are no longer named on disk. After a
          // failed write they stay deferred and go with a later save.
          if (written && !deletions.empty()) {
            if (owner->sessionData_) {
              owner->sessionData_->eraseImageFiles(deletions);
            } else {
              NYBSessionData().eraseImageFiles(deletions);
            }
          }
          if (followUp) owner->saveSessionData();
          owner->archiveWorkPending_.fetch_sub(1);
        });
  });
}

void NYBSession::noteArchiveWrite(std::optional<NYBArchiveWriteFailure> failure) {
  std::lock_guard lock(writeFailureMutex_);
  if (failure) {
    archiveWriteFailureCount_.fetch_add(1);
    const bool sameCause = loggedWriteFailure_ && loggedWriteFailure_->path == failure->path &&
                           loggedWriteFailure_->error == failure->error;
    if (!sameCause) {
      log("NYBSession: Unable to save the session to {}: {}", failure->path, failure->reason);
      loggedWriteFailure_ = failure;
    }
  } else {
    loggedWriteFailure_.reset();
  }
  lastWriteFailure_ = std::move(failure);
}

std::optional<NYBArchiveWriteFailure> NYBSession::lastArchiveWriteFailure() const {
  std::lock_guard lock(writeFailureMutex_);
  return lastWriteFailure_;
}

bool NYBSession::waitForArchiveWrites(std::chrono::milliseconds timeout) {
  return NYBRunLoop::main().runUntil(
      [this] {
        return !writeInProgress_.load() && !writeRequested_.load() &&
               archiveWorkPending_.load() == 0;
      },
      timeout);
}

}  // namespace nyb
