// NYBSession: the library's single entry point for an application. It holds
// the signed-in user's session (NYBSessionData: the user, the upload queue and
// the photo map), accepts records (and records with a photo) for submission,
// keeps them in a first-in-first-out upload queue that survives restarts, and
// sends that queue to the service through NYBAPIClient one request at a time,
// records first, photos after their record was accepted. Every outcome is
// announced on the default notification centre (the four notification names
// below); a change of network reachability, every submission and every
// finished request start processing again.
//
// Ownership. sharedInstance() makes the process's one session on its first
// call (exactly once, whichever threads call) and never destroys it. Hosts and
// tests may also make independent sessions with sessionWithConfiguration():
// each runs the same start-up (the library description logged, an observer of
// reachability changes registered, its own internet-connection monitor made
// and started, the archive of an earlier run loaded, the queue processed) and
// is released by its last owner, which removes its observer and stops its
// monitor. Requests and writes in flight hold the session until their ends
// have been delivered on the main queue, so the last release happens on the
// main thread when the owner lets go there. All sessions keep their archive, "sessionData", in the
// documents directory (NYBDocuments) as it is when each save or load happens, and the photos in its
// "images" folder. A session holds the documents directory as it is when the session starts
// (NYBDocuments::holdDocumentsDirectory(), an advisory lock on "sessionData.lock") for as long as
// it lives: when another process holds it, sharedInstance() and sessionWithConfiguration() raise
// NYBDocumentsDirectoryInUseException before any file there is read or written (sharedInstance()
// then tries again on its next call). Sessions of one process share the hold, so two live sessions
// of one process must still not use the same directory at once. A host that changes the documents
// directory should do so only between sessions. A session owns its session data, its API client,
// its monitor and, while a request is in flight, the one processingRecord.
//
// Failures. A damaged archive is logged, kept on disk and moved aside, never written over (see
// loadSession()). A failed archive write is logged once per cause, kept for the host to read
// (lastArchiveWriteFailure()), and tried again by every later save; until a write succeeds the file
// on disk holds the last state that was written. A photo's file is deleted only once an archive
// that no longer names it is on disk, so after a crash every photo the archive names has its file.
//
// Keys. With a key set (NYBSessionKey), an archive that does not open with it counts as damaged,
// and a plain archive is written again sealed as soon as it is loaded.
//
// Records. The queue holds the session's own copies of the records it is
// given, so the caller may go on changing its objects. Once queued, a record
// is never changed in place: the media of an uploaded photo are added to a
// copy. Records the session hands out through its accessors
// (processingRecord, the session data's records and photo keys) are the
// queued ones: read them, copy them to change them. That is what lets a save
// snapshot the session data at a constant cost (the model base's copy,
// sharing immutable containers and records) while the write queue archives
// it. The four notifications carry records no one else holds (copies of the
// queued or accepted record, or the copy that received the media), so an
// observer may change what it is handed.
//
// Changing sessions. The record (or photo) in flight belongs to the queue it
// was taken from. When the session ends, or another starts (for the same user
// too), that queue is discarded, and so is whatever the late answer would
// have done to it: the outcome notification is still posted, the save still
// runs, but nothing is re-queued, removed or moved in the new session, and
// the new session's queue goes on. Nothing of one session is ever sent as
// another's.
//
// Records that cannot be sent. A record whose JSON document cannot be made
// (a date field holding text, a date or number that is NaN) is refused by
// the API client with kNYBAPIErrorDomain / NYBAPIErrorUnencodableRecord,
// whose description names the key; the session drops it like a record the
// service refused (kNYBRecordSubmissionFailedNotification) and sends the next
// one. No submission, and no start-up from an archive holding such a
// record, raises.
//
// Exit. A write under way when the program ends (main returning, or exit on
// the thread that drives the session) is finished before exit destroys
// anything, so the archive on disk is always a whole one. Saves asked for during that write are
// not: an application that wants its newest state on disk calls waitForArchiveWrites() on the main
// thread before it returns from main.
//
// Threads. Everything is called on the main thread (the thread that drives
// NYBRunLoop::main()), where the API client also delivers its completions and
// where the monitor's notifications arrive when the session was made there.
// Saving takes a snapshot of the session data on the main thread and archives
// it on one serial write queue shared by every session of the process; a
// burst of saves during a write folds into one more write, so a burst costs
// at most two writes. The two write flags are the only state the write queue
// touches. Background tasks keep a request or a write alive; each is ended
// exactly once. A reachability change from any monitor makes every session
// process its queue, on the main thread: one posted on another thread goes
// through the main queue.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBConstants.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "NymbrelCore/NYBAPIClient.h"
#include "NymbrelCore/NYBImage.h"
#include "NymbrelCore/NYBNotificationCenter.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBReachability.h"
#include "NymbrelCore/NYBReachabilitySource.h"
#include "NymbrelCore/NYBRecord.h"
#include "NymbrelCore/NYBSessionData.h"
#include "NymbrelCore/NYBURL.h"
#include "NymbrelCore/NYBUser.h"

namespace nyb {

enum NYBSessionErrorCode : std::int64_t {
  // The photo queued for a record could not be loaded from its file.
  NYBSessionErrorImageUnavailable = 0,
};

class NYBSession;
namespace session {
struct Testing;
}

// Why the last archive write did not reach the disk.
struct NYB_EXPORT NYBArchiveWriteFailure {
  // The file that could not be written (the archive, or the damaged archive
  // that had to be moved aside first).
  std::string path;
  // The system's reason; std::errc::invalid_argument when the session data
  // could not be archived at all.
  std::error_code error;
  // The reason as text.
  std::string reason;
};

// How an independent session is made.
struct NYB_EXPORT NYBSessionConfiguration {
  // Where its internet-connection monitor reads its flags; null: the default
  // reachability source.
  std::shared_ptr<NYBReachabilitySource> reachabilitySource;
};

class NYB_EXPORT NYBSessionClass : public NYBClass {
 public:
  using NYBClass::NYBClass;
  // The operation an add-on module may attach to every session.
  using EndHealthKitSessionOperation = std::function<void(NYBSession& session)>;

  // The "CFBundleShortVersionString" of the library's bundle information,
  // found by the library's bundle identifier; absent when the bundle or the
  // key is missing. Any thread.
  virtual std::optional<std::string> libraryVersion() const;
  // "NymbrelMobile - Version <libraryVersion>", "(null)" standing for an
  // absent version. Any thread.
  virtual std::string libraryDescription() const;

  // The process's session, made and started on the first call.
  virtual std::shared_ptr<NYBSession> sharedInstance() const;
  // A new session, independent of the shared one, started the same way.
  virtual std::shared_ptr<NYBSession> sessionWithConfiguration(
      NYBSessionConfiguration configuration) const;

  // Attaches (or, with an empty function, detaches) endHealthKitSession to
  // every session; endSession() calls it when present. Any thread.
  void setEndHealthKitSessionOperation(EndHealthKitSessionOperation operation) const;
  bool instancesRespondToEndHealthKitSession() const;
  EndHealthKitSessionOperation endHealthKitSessionOperation() const;

 private:
  mutable std::mutex addOnMutex_;
  mutable EndHealthKitSessionOperation endHealthKitSession_;
};

class NYB_EXPORT NYBSession : public NYBObject {
  NYB_DECLARE_CLASS(NYBSessionClass)
  struct PrivateTag {};

 public:
  // ---- Class-level conveniences ---------------------------------------------
  static std::optional<std::string> libraryVersion() { return staticClass().libraryVersion(); }
  static std::string libraryDescription() { return staticClass().libraryDescription(); }
  static std::shared_ptr<NYBSession> sharedInstance() { return staticClass().sharedInstance(); }
  static std::shared_ptr<NYBSession> sessionWithConfiguration(
      NYBSessionConfiguration configuration = {}) {
    return staticClass().sessionWithConfiguration(std::move(configuration));
  }

  // Made only through the two class-level operations above.
  explicit NYBSession(PrivateTag);
  ~NYBSession() override;

  // ---- The application's operations (main thread) ---------------------------

  // Ends the current session, if any (even for the same user), then starts a
  // new, empty one for the user: new session data, the image directory made,
  // the archive saved. The queue is not processed.
  void startSessionWithUser(const std::shared_ptr<NYBUser>& user);
  // Drops the session data, deletes the archive (logging "Error deleting
  // session: <reason>" when that fails), calls endHealthKitSession when an
  // add-on attached it, and drops the API client. A request in flight stays in
  // flight; photo files stay until the image directory is next emptied.
  void endSession();
  // Queues one record. A null record logs "NYBSEssion submitRecord: Error.
  // Record cannot be nil" and does nothing else.
  void submitRecord(const std::shared_ptr<NYBRecord>& record);
  // Queues a record with a photo to upload after it. Either null logs
  // "NYBSession submitRecord:withImage: Error. Record and image cannot be
  // nil"; a record of type none is ignored silently.
  void submitRecord(const std::shared_ptr<NYBRecord>& record,
                    const std::shared_ptr<const NYBImage>& image);
  // Queues the records, in order, leaving out null ones and those of type
  // none; saves and processes the queue even when nothing was left.
  void submitRecords(const std::vector<std::shared_ptr<NYBRecord>>& records);
  // The session data's user; null without session data.
  std::shared_ptr<NYBUser> user() const;
  // "<NYBSession: 0x...>\n" followed by the session data's description.
  std::string description() const override;

  // ---- The engine (main thread; for add-on modules too) ---------------------

  // processRecords(), then processImages().
  void processQueue();
  // Sends the head of the queue unless a request is in flight: routine
  // records are upserted, records with a recordID updated, others posted.
  // Success posts kNYBRecordSubmittedNotification and goes on; an HTTP 4xx,
  // or a record whose JSON cannot be made (NYBAPIErrorUnencodableRecord),
  // drops the record with kNYBRecordSubmissionFailedNotification and goes on;
  // anything else puts the record back at the tail and waits for the next
  // trigger.
  void processRecords();
  // When idle, uploads the photo of the first record in the photo map that
  // already has a recordID.
  void processImages();
  // The handler of kReachabilityChangedNotification: processQueue(), at once
  // on the main thread, through the main queue from any other.
  void reachabilityChanged(const NYBNotification& notification);

  // ---- The archive (main thread) ---------------------------------------------

  // <documents directory>/sessionData
  NYBURL sessionDataURL() const;
  // Replaces the session data with the archived one when an archive exists,
  // then (with no archive work of this session pending) removes the
  // temporary files of interrupted writes and the photo files that the
  // loaded state does not name. A damaged archive logs "Caught decoding
  // exception: <reason>" and leaves the session data as it was and the file
  // in place; the next save first moves it aside to
  // "sessionData.damaged-<UTC time>" (mode 0600; the newest three are kept)
  // and logs where, and endSession() does not delete it.
  void loadSession();
  // Schedules a durable write of a snapshot of the session data (an archive
  // of no session when there is none). During a write it only asks for one
  // more write, which snapshots the newest state when the running one ends;
  // a save that races the end of a write is never lost. Photo files dropped
  // from the photo map since the last save are deleted once this write is
  // on disk.
  void saveSessionData();
  // Why the last archive write that finished failed; absent when it
  // succeeded or none has finished. Each new cause is also logged once:
  // "NYBSession: Unable to save the session to <path>: <reason>". Any thread.
  std::optional<NYBArchiveWriteFailure> lastArchiveWriteFailure() const;

  // ---- Fields -----------------------------------------------------------------

  bool writeInProgress() const { return writeInProgress_.load(); }
  bool writeRequested() const { return writeRequested_.load(); }
  const std::shared_ptr<NYBRecord>& processingRecord() const { return processingRecord_; }
  // Made on first use for the session's user; null while there is no user.
  std::shared_ptr<NYBAPIClient> apiClient();
  const std::shared_ptr<NYBReachability>& reachability() const { return reachability_; }
  const std::shared_ptr<NYBSessionData>& sessionData() const { return sessionData_; }
  // The fields change only through the operations above: setting them from
  // outside would break the queue's invariants (tests reach them through a
  // seam inside the library's sources, session/SessionTesting.h).

  // ---- The add-on hook ---------------------------------------------------------

  // Whether an add-on attached endHealthKitSession (see NYBSessionClass).
  bool respondsToEndHealthKitSession() const;
  // Calls it; nothing when it is not attached.
  void endHealthKitSession();

  // ---- For tests and hosts that must know the archive is on disk -------------

  // Archive writes this session has finished (failed ones included), and how
  // many of them failed; from any thread.
  std::size_t archiveWriteCount() const { return archiveWriteCount_.load(); }
  std::size_t archiveWriteFailureCount() const { return archiveWriteFailureCount_.load(); }
  // Main thread: returns once no write (or deletion) of this session's
  // archive is running, queued or asked for, driving the main run loop
  // meanwhile (follow-up saves run there). False when that took longer than
  // the timeout.
  bool waitForArchiveWrites(std::chrono::milliseconds timeout = std::chrono::seconds(30));

 private:
  friend class NYBSessionClass;
  friend struct session::Testing;
  void start(const NYBSessionConfiguration& configuration);
  // Write queue: records the outcome of one write; logs a new cause.
  void noteArchiveWrite(std::optional<NYBArchiveWriteFailure> failure);

  std::atomic<bool> writeInProgress_{false};
  std::atomic<bool> writeRequested_{false};
  std::shared_ptr<NYBRecord> processingRecord_;
  std::shared_ptr<NYBAPIClient> apiClient_;
  std::shared_ptr<NYBReachability> reachability_;
  std::shared_ptr<NYBSessionData> sessionData_;

  NYBNotificationToken reachabilityObserver_;
  std::atomic<std::size_t> archiveWriteCount_{0};
  // Work handed to the write queue (writes, deletions of the archive) whose
  // end the main queue has not yet heard of: waitForArchiveWrites() waits
  // for it, and the follow-up save runs in that same main-queue block.
  std::atomic<std::size_t> archiveWorkPending_{0};
  std::atomic<std::size_t> archiveWriteFailureCount_{0};
  // The process's hold on the documents directory, taken at start.
  std::shared_ptr<const void> documentsHold_;
  // The file at the archive's path failed to load and has not been moved
  // aside yet: no write may replace it and endSession() must not delete it.
  // Set on the main thread, cleared by the write queue once it is moved.
  std::atomic<bool> damagedArchiveOnDisk_{false};
  mutable std::mutex writeFailureMutex_;
  std::optional<NYBArchiveWriteFailure> lastWriteFailure_;    // guarded
  std::optional<NYBArchiveWriteFailure> loggedWriteFailure_;  // guarded; the cause last logged
};

}  // namespace nyb
