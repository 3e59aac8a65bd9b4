// The tool's side of the library's session: opens the shared session for a
// user, submits records (and photos), drives the main run loop while the
// session sends them, and reports every outcome the session announces.
//
// The host observes the four record notifications on the default centre and
// turns each into an Event. Records and photos submitted through the host are
// tracked by activity ID, so their outcomes can be told from those of records
// an earlier run left queued. openSession() also has the host keep every
// refusal in the data directory's rejected.jsonl (Refusals.h), before the
// command's handler sees it. Main thread only; one host per process.
#pragma once

#include <NymbrelCore/NYBError.h>
#include <NymbrelCore/NYBImage.h>
#include <NymbrelCore/NYBNotificationCenter.h>
#include <NymbrelCore/NYBRecord.h>
#include <NymbrelCore/NYBSession.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Options.h"
#include "QueueView.h"

namespace nymbrel {

class ProgressBar;
class RefusalKeeper;

class SessionHost {
 public:
  enum class EventKind { RecordSubmitted, RecordRejected, PhotoSubmitted, PhotoRejected };
  struct Event {
    EventKind kind;
    std::shared_ptr<nyb::NYBRecord> record;  // the service's copy for RecordSubmitted
    std::shared_ptr<nyb::NYBError> error;    // for the two rejections
    bool tracked = false;                    // submitted through this host
  };
  using EventHandler = std::function<void(const Event&)>;
  // Whether the service (or an unreadable photo) turned the item down.
  static bool isRefusal(EventKind kind) {
    return kind == EventKind::RecordRejected || kind == EventKind::PhotoRejected;
  }

  struct Tally {
    std::size_t recordsSubmitted = 0;
    std::size_t recordsRejected = 0;
    std::size_t photosSubmitted = 0;
    std::size_t photosRejected = 0;  // refused, unreadable, or dropped with their record
    std::size_t recordsPending = 0;  // tracked, still queued
    std::size_t photosPending = 0;
    std::size_t photosNotStored = 0;  // could not be written at submission
    std::size_t earlierRejected = 0;  // refused records and photos an earlier run queued
  };

  // Registers the observers; the handler runs on the main thread as each
  // outcome arrives.
  explicit SessionHost(EventHandler handler);
  ~SessionHost();
  SessionHost(const SessionHost&) = delete;
  SessionHost& operator=(const SessionHost&) = delete;

  // Opens the shared session (which first sends what the archive left
  // queued). The archived session is kept when it belongs to `user`, or when
  // no user is given; otherwise a new session starts for the user, which
  // drops the archived queue: refused (a usage error) when that queue is not
  // empty, unless discardQueue. No user given and none archived is a usage
  // error.
  void open(const std::optional<UserCredentials>& user, const ArchiveContents& archive,
            bool discardQueue);
  std::shared_ptr<nyb::NYBUser> user() const;
  // Keeps every refusal in the directory's rejected.jsonl (Refusals.h); must
  // come before open(), which may already send what an earlier run queued.
  void keepRefusalsIn(const std::string& directory);
  const RefusalKeeper* refusalKeeper() const { return keeper_.get(); }

  // Queues records (in order), or one record with its photo, and starts
  // sending; both are tracked.
  void submit(const std::vector<std::shared_ptr<nyb::NYBRecord>>& records);
  void submit(const std::shared_ptr<nyb::NYBRecord>& record,
              const std::shared_ptr<const nyb::NYBImage>& photo);

  // Drives the main run loop until no request is in flight (everything sent,
  // or the rest waits for a later run) or the timeout passes, then until the
  // archive is on disk. False on timeout.
  bool runUntilIdle(std::chrono::milliseconds timeout);

  // Tracked records and photos, and how many of them have an outcome.
  std::size_t trackedCount() const;
  std::size_t settledCount() const;
  Tally tally() const;
  // Whether the record submitted through this host was sent or refused.
  bool settled(const nyb::NYBRecord& record) const;
  // Everything the session still holds, tracked or not.
  std::size_t queuedRecordCount() const;
  std::size_t queuedPhotoCount() const;
  // Why the session's last archive write failed; absent when it succeeded.
  std::optional<nyb::NYBArchiveWriteFailure> saveFailure() const;
  // Takes this process's hold on the data directory (before anything in it
  // is read); another process holding it is a failure (kExitBusy).
  void holdDataDirectory(const std::string& directory);

  // One line about an event: "submitted weight record <activity ID> as <_id>: ...".
  static std::string describe(const Event& event);

 private:
  struct Item {
    bool recordSettled = false;
    bool hasPhoto = false;
    bool photoSettled = false;
  };
  void track(const std::shared_ptr<nyb::NYBRecord>& record, bool hasPhoto);
  void deliver(EventKind kind, const nyb::NYBNotification& notification);

  EventHandler handler_;
  std::vector<nyb::NYBNotificationToken> observers_;
  std::shared_ptr<const void> directoryHold_;
  std::shared_ptr<nyb::NYBSession> session_;
  std::map<std::string, Item> items_;
  Tally tally_;
  std::unique_ptr<RefusalKeeper> keeper_;
};

}  // namespace nymbrel

namespace nymbrel {

// Reads the archive in the data directory and opens the host's session for
// the user the options give. A damaged archive is replaced when a user is
// given (with a warning on standard error) and a failure otherwise.
void openSession(SessionHost& host, const CommonOptions& options);

// The event's line: refusals on standard error, the rest on standard output;
// above the progress bar when one is given.
void printEvent(const SessionHost::Event& event, ProgressBar* progress = nullptr);

// After a run: writes where refusals were kept and what stays queued (and a
// time-out) to standard error and gives the exit code: kExitStorage when the
// session could not be saved (then "could not save" with the path replaces the
// queued report), kExitRejected when anything was refused, also what an earlier
// run queued, kExitPending when anything stays queued, kExitFailure when a
// photo could not be stored, else kExitOK.
int reportOutcome(const SessionHost& host, bool finished, const CommonOptions& options);

}  // namespace nymbrel
