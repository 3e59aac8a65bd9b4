// The session's archive: where it lives, loading it at start-up, and saving
// snapshots of the session data on the serial write queue with saves during a
// write folded into one more write.
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDocuments.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Device.h"
#include "platform/DurableFile.h"
#include "platform/Log.h"
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

}  // namespace session

namespace {

std::filesystem::path archivePath() {
  return std::filesystem::path(NYBDocuments::documentsDirectory()) / "sessionData";
}

// What the write queue archives: the model base's copy of the session data.
// It shares the containers and the records with the live object, which is
// safe because neither ever changes: containers are immutable values, and a
// record is never changed in place once queued (the session queues its own
// copies and adds media to a copy). So the main thread pays a constant cost,
// not one per queued record.
std::shared_ptr<NYBSessionData> snapshotOf(const std::shared_ptr<NYBSessionData>& sessionData) {
  return sessionData ? sessionData->copyAs<NYBSessionData>() : nullptr;
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
  if (file) {
    bytes.resize(static_cast<std::size_t>(file.tellg()));
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

}  // namespace

NYBURL NYBSession::sessionDataURL() const {
  return NYBURL::fileURLWithPath(archivePath().string());
}

void NYBSession::loadSession() {
  const std::filesystem::path path = archivePath();
  if (!writeInProgress_.load() && archiveWorkPending_.load() == 0) removeStaleTemporaryFiles(path);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return;
  try {
    const NYBData bytes = readWholeFile(path);
    const NYBDynamicValue root = NYBKeyedUnarchiver::unarchiveObjectWithData(bytes);
    if (root.isAbsent() || root.isNull()) {
      sessionData_ = nullptr;
      return;
    }
    auto restored = root.objectAs<NYBSessionData>();
    if (!restored) throw damage("The archive's root object is not session data");
    // The queue is sent as it is: anything in it but records is damage too.
    if (const NYBArray* queue = restored->records().array()) {
      for (const NYBDynamicValue& each : *queue) {
        if (!each.objectAs<NYBRecord>()) throw damage("The archived queue holds a non-record");
      }
    }
    sessionData_ = std::move(restored);
  } catch (const NYBException& exception) {
    log("Caught decoding exception: {}", exception.description());
  } catch (const std::exception& exception) {
    log("Caught decoding exception: {}", exception.what());
  }
}

void NYBSession::saveSessionData() {
  if (writeInProgress_.load()) {
    writeRequested_.store(true);
    return;
  }
  auto task = session::BackgroundTask::begin();
  writeInProgress_.store(true);
  std::shared_ptr<NYBSessionData> snapshot = snapshotOf(sessionData_);
  auto self = std::static_pointer_cast<NYBSession>(shared_from_this());
  archiveWorkPending_.fetch_add(1);
  session::archiveWriteQueue().async([self = std::move(self), snapshot = std::move(snapshot),
                                      path = archivePath(), task = std::move(task)]() mutable {
    try {
      const NYBData bytes = NYBKeyedArchiver::archivedDataWithRootObject(
          snapshot ? NYBDynamicValue(snapshot) : NYBDynamicValue());
      snapshot.reset();
      std::error_code ignored;
      writeFileDurably(path, bytes.view(), ignored);
    } catch (const std::exception&) {
      // A failed write is left to the next save, which writes the full state.
    }
    snapshot.reset();
    self->archiveWriteCount_.fetch_add(1);
    self->writeInProgress_.store(false);
    const bool followUp = self->writeRequested_.exchange(false);
    // The task ends before the main queue hears of the write, so that a
    // waiter there finds it ended; the follow-up save opens its own.
    task->end();
    // The session is let go on the main thread, where it lives; the follow-up
    // save, if asked for, snapshots the newest state there.
    NYBDispatchQueue::main().async([self = std::move(self), followUp]() mutable {
      const std::shared_ptr<NYBSession> owner = std::move(self);  // let go in the body
      if (followUp) owner->saveSessionData();
      owner->archiveWorkPending_.fetch_sub(1);
    });
  });
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
