#include "SessionHost.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDocuments.h>
#include <NymbrelCore/NYBException.h>
#include <NymbrelCore/NYBMedia.h>
#include <NymbrelCore/NYBRunLoop.h>
#include <NymbrelCore/NYBSessionData.h>
#include <NymbrelCore/NYBUser.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "Describe.h"
#include "Errors.h"
#include "Progress.h"
#include "Refusals.h"

namespace nymbrel {

using nyb::NYBNotification;
using nyb::NYBNotificationCenter;

namespace {

std::string activityIDOf(const nyb::NYBRecord& record) {
  return record.activityID().isString() ? std::string(record.activityID().stringView()) : "";
}

std::string plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

SessionHost::SessionHost(EventHandler handler) : handler_(std::move(handler)) {
  auto& center = NYBNotificationCenter::defaultCenter();
  auto observe = [&](std::string_view name, EventKind kind) {
    observers_.push_back(center.addObserverForName(
        std::string(name), {},
        [this, kind](const NYBNotification& notification) { deliver(kind, notification); }));
  };
  observe(nyb::kNYBRecordSubmittedNotification, EventKind::RecordSubmitted);
  observe(nyb::kNYBRecordSubmissionFailedNotification, EventKind::RecordRejected);
  observe(nyb::kNYBRecordImageSubmittedNotification, EventKind::PhotoSubmitted);
  observe(nyb::kNYBRecordImageSubmissionFailedNotification, EventKind::PhotoRejected);
}

SessionHost::~SessionHost() {
  for (const auto& token : observers_) NYBNotificationCenter::defaultCenter().removeObserver(token);
}

void SessionHost::keepRefusalsIn(const std::string& directory) {
  keeper_ = std::make_unique<RefusalKeeper>(directory);
}

void SessionHost::open(const std::optional<UserCredentials>& user, const ArchiveContents& archive,
                       bool discardQueue) {
  std::optional<UserCredentials> archived = archive.user();
  bool keepArchived = false;
  if (!user) {
    if (!archived) {
      throw usageError(
          "no user: give --org, --user and --token (or set NYMBREL_ORG, NYMBREL_USER and "
          "NYMBREL_TOKEN); the data directory holds no session to continue");
    }
    keepArchived = true;
  } else if (archived && *archived == *user) {
    keepArchived = true;
  } else if (archive.recordCount() + archive.photoCount() > 0 && !discardQueue) {
    throw usageError("the data directory holds " + plural(archive.recordCount(), "record") +
                     " and " + plural(archive.photoCount(), "photo") + " queued for " +
                     archived->org + "/" + archived->user +
                     "; a session for another user (or token) would drop them. Use "
                     "--discard-queue to drop them, or another --data-dir");
  }
  if (!keepArchived && archive.exists) {
    // The shared session would load the earlier session and start sending its
    // queue with the earlier user's token; the new session replaces it anyway.
    std::error_code ignored;
    std::filesystem::remove(archive.path, ignored);
  }
  session_ = nyb::NYBSession::sharedInstance();
  if (!keepArchived) {
    session_->startSessionWithUser(
        std::make_shared<nyb::NYBUser>(user->user, user->org, user->token));
  } else if (!session_->sessionData()) {
    throw CommandFailure(kExitFailure, "the session in " + archive.path + " could not be loaded");
  }
}

std::shared_ptr<nyb::NYBUser> SessionHost::user() const {
  return session_ ? session_->user() : nullptr;
}

void SessionHost::track(const std::shared_ptr<nyb::NYBRecord>& record, bool hasPhoto) {
  items_[activityIDOf(*record)] = Item{false, hasPhoto, false};
}

void SessionHost::submit(const std::vector<std::shared_ptr<nyb::NYBRecord>>& records) {
  for (const auto& record : records) track(record, false);
  session_->submitRecords(records);
}

void SessionHost::submit(const std::shared_ptr<nyb::NYBRecord>& record,
                         const std::shared_ptr<const nyb::NYBImage>& photo) {
  track(record, true);
  session_->submitRecord(record, photo);
  // A photo that could not be written is dropped by the session, which keeps
  // the record queued without it.
  const auto& data = session_->sessionData();
  if (data && !data->hasImageForRecord(record)) {
    auto item = items_.find(activityIDOf(*record));
    if (item != items_.end() && !item->second.recordSettled) {
      item->second.hasPhoto = false;
      ++tally_.photosNotStored;
    }
  }
}

void SessionHost::deliver(EventKind kind, const NYBNotification& notification) {
  Event event{kind, notification.object().objectAs<nyb::NYBRecord>(),
              notification.userInfo()["error"].objectAs<nyb::NYBError>(), false};
  if (event.record) {
    auto item = items_.find(activityIDOf(*event.record));
    if (item != items_.end()) {
      event.tracked = true;
      Item& state = item->second;
      switch (kind) {
        case EventKind::RecordSubmitted:
          state.recordSettled = true;
          ++tally_.recordsSubmitted;
          break;
        case EventKind::RecordRejected:
          state.recordSettled = true;
          ++tally_.recordsRejected;
          if (state.hasPhoto && !state.photoSettled) {  // dropped with its record
            state.photoSettled = true;
            ++tally_.photosRejected;
          }
          break;
        case EventKind::PhotoSubmitted:
          state.photoSettled = true;
          ++tally_.photosSubmitted;
          break;
        case EventKind::PhotoRejected:
          state.photoSettled = true;
          ++tally_.photosRejected;
          break;
      }
    }
  }
  if (isRefusal(kind) && !event.tracked) ++tally_.earlierRejected;
  if (keeper_) keeper_->keep(event, session_ ? session_->sessionData().get() : nullptr);
  if (handler_) handler_(event);
}

bool SessionHost::runUntilIdle(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  bool idle = nyb::NYBRunLoop::main().runUntil(
      [this] { return session_->processingRecord() == nullptr; }, timeout);
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  bool written = session_->waitForArchiveWrites(std::max(left, std::chrono::milliseconds(5000)));
  return idle && written;
}

std::size_t SessionHost::trackedCount() const {
  std::size_t count = 0;
  for (const auto& [id, item] : items_) count += item.hasPhoto ? 2 : 1;
  return count;
}

std::size_t SessionHost::settledCount() const {
  std::size_t count = 0;
  for (const auto& [id, item] : items_) {
    count += (item.recordSettled ? 1 : 0) + (item.hasPhoto && item.photoSettled ? 1 : 0);
  }
  return count;
}

SessionHost::Tally SessionHost::tally() const {
  Tally tally = tally_;
  for (const auto& [id, item] : items_) {
    if (!item.recordSettled) ++tally.recordsPending;
    if (item.hasPhoto && !item.photoSettled) ++tally.photosPending;
  }
  return tally;
}

bool SessionHost::settled(const nyb::NYBRecord& record) const {
  auto item = items_.find(activityIDOf(record));
  return item != items_.end() && item->second.recordSettled;
}

std::size_t SessionHost::queuedRecordCount() const {
  const auto& data = session_ ? session_->sessionData() : nullptr;
  const nyb::NYBArray* records = data ? data->records().array() : nullptr;
  return records ? records->size() : 0;
}

std::size_t SessionHost::queuedPhotoCount() const {
  const auto& data = session_ ? session_->sessionData() : nullptr;
  const nyb::NYBDictionary* photos = data ? data->imageFilenames().dictionary() : nullptr;
  return photos ? photos->size() : 0;
}

std::optional<nyb::NYBArchiveWriteFailure> SessionHost::saveFailure() const {
  return session_ ? session_->lastArchiveWriteFailure() : std::nullopt;
}

void SessionHost::holdDataDirectory(const std::string& directory) {
  try {
    directoryHold_ = nyb::NYBDocuments::holdDocumentsDirectory();
  } catch (const nyb::NYBDocumentsDirectoryInUseException&) {
    throw CommandFailure(kExitBusy, "another process is using " + directory);
  }
}

std::string SessionHost::describe(const Event& event) {
  std::string label = event.record ? recordLabel(*event.record) : "a record";
  std::string line;
  switch (event.kind) {
    case EventKind::RecordSubmitted: {
      line = "submitted " + label;
      if (event.record && event.record->recordID().isString()) {
        line += " as " + std::string(event.record->recordID().stringView());
      }
      if (std::string values = event.record ? recordValues(*event.record) : ""; !values.empty()) {
        line += ": " + values;
      }
      break;
    }
    case EventKind::RecordRejected:
      line =
          "rejected " + label + ": " + (event.error ? errorText(*event.error) : "no reason given");
      break;
    case EventKind::PhotoSubmitted: {
      line = "photo sent for " + label;
      const nyb::NYBArray* media = event.record ? event.record->media().array() : nullptr;
      auto last = media && !media->empty() ? (*media)[media->size() - 1].objectAs<nyb::NYBMedia>()
                                           : nullptr;
      if (last && last->mediaID().isString()) {
        line += ": media " + std::string(last->mediaID().stringView());
      }
      break;
    }
    case EventKind::PhotoRejected:
      line = "photo rejected for " + label + ": " +
             (event.error ? errorText(*event.error) : "no reason given");
      break;
  }
  if (!event.tracked) line += " (queued by an earlier run)";
  return line;
}

}  // namespace nymbrel

namespace nymbrel {

void openSession(SessionHost& host, const CommonOptions& options) {
  std::optional<UserCredentials> user = givenCredentials(options);
  // Before the archive is read or replaced: another process may be writing it.
  host.holdDataDirectory(documentsDirectory(options));
  ArchiveContents archive;
  try {
    archive = readArchive(documentsDirectory(options));
  } catch (const CommandFailure& damage) {
    // Without the right key the archive is not damaged: starting anew would
    // set the user's queue aside.
    if (!user || damage.code() == kExitKey) throw;
    std::cerr << "nymbrel: " << damage.what() << "; starting a new session\n";
  }
  host.keepRefusalsIn(documentsDirectory(options));
  host.open(user, archive, options.discardQueue);
}

void printEvent(const SessionHost::Event& event, ProgressBar* progress) {
  bool refusal = SessionHost::isRefusal(event.kind);
  std::string line = (refusal ? "nymbrel: " : "") + SessionHost::describe(event);
  std::ostream& out = refusal ? std::cerr : std::cout;
  if (progress) {
    progress->print(out, line);
  } else {
    out << line << std::endl;
  }
}

int reportOutcome(const SessionHost& host, bool finished, const CommonOptions& options) {
  SessionHost::Tally tally = host.tally();
  if (auto failure = host.saveFailure()) {
    // Nothing this run reports as queued is on disk: say so instead.
    std::cerr << "nymbrel: could not save the session to " << failure->path << ": "
              << failure->reason;
    if (std::size_t unsaved = tally.recordsPending + tally.photosPending; unsaved > 0) {
      std::cerr << "; " << unsaved << (unsaved == 1 ? " item is" : " items are")
                << " not queued for a later run";
    }
    std::cerr << "\n";
    return kExitStorage;
  }
  int code = kExitOK;
  if (tally.recordsRejected + tally.photosRejected + tally.earlierRejected > 0)
    code = combineExitCodes(code, kExitRejected);
  if (const RefusalKeeper* keeper = host.refusalKeeper(); keeper && !keeper->summary().empty())
    std::cerr << "nymbrel: " << keeper->summary() << "\n";
  if (tally.photosNotStored > 0) {
    std::cerr << "nymbrel: " << plural(tally.photosNotStored, "photo")
              << " could not be stored for upload; the records were queued without them\n";
    code = combineExitCodes(code, kExitFailure);
  }
  if (tally.recordsPending + tally.photosPending > 0) {
    std::string what;
    if (tally.recordsPending > 0) what = plural(tally.recordsPending, "record");
    if (tally.photosPending > 0) {
      what += (what.empty() ? "" : " and ") + plural(tally.photosPending, "photo");
    }
    bool one = tally.recordsPending + tally.photosPending == 1;
    std::cerr << "nymbrel: " << what << (one ? " stays" : " stay") << " queued";
    if (!finished) {
      std::cerr << ": no answer within " << options.timeoutSeconds << " s";
    } else {
      std::cerr << ": the service could not be reached or answered with a server error";
    }
    std::cerr << "; the next submit or import sends them first\n";
    code = combineExitCodes(code, kExitPending);
  }
  return code;
}

}  // namespace nymbrel
