// Pieces the session's sources share: the archive write queue, background
// tasks ended exactly once, and how an error is classified.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "NymbrelCore/NYBApplication.h"
#include "NymbrelCore/NYBDispatchQueue.h"
#include "NymbrelCore/NYBError.h"
#include "NymbrelCore/NYBRecord.h"

namespace nyb::session {

// The one serial queue of the process on which archives are written,
// "com.nymbrel.sessionWrite"; made on first use and never destroyed.
NYBDispatchQueue& archiveWriteQueue();

// Makes the calling thread, when it ends the process (main returning, or
// exit), first wait for the write queue. Exit destroys the exiting thread's
// thread_local objects before any static one, and a write reads statics (the
// class objects, shared constant values): so a write under way then finishes
// on intact objects and leaves a whole archive. Called on the thread that
// drives the session, before it queues writes.
void finishWritesAtExit();

// The hand-off of archive writes between the main thread and the write queue,
// over the session's two flags: one write runs at a time, and saves during it
// fold into one follow-up. A save that races the end of a write is never
// lost: either the writer sees its request, or the save sees the write ended
// and takes the request back itself.
//
// Main thread, at a save: true when the caller is to start a write now.
bool beginWriteOrRequest(std::atomic<bool>& inProgress, std::atomic<bool>& requested);
// Write queue, at the end of a write: true when a follow-up save is owed.
bool endWrite(std::atomic<bool>& inProgress, std::atomic<bool>& requested);

// What the queue keeps of a record handed to the session.
std::shared_ptr<NYBRecord> queuedCopy(const std::shared_ptr<NYBRecord>& record);

// Whether the error is the service's refusal: an HTTP status from 400 to 499.
bool isServiceRefusal(const std::shared_ptr<NYBError>& error);

// One background task. Its expiration handler and the work that finishes
// share it: whichever comes first ends the task, the other finds it ended.
// Any thread.
class BackgroundTask {
 public:
  static std::shared_ptr<BackgroundTask> begin();
  void end();

 private:
  std::mutex mutex_;
  NYBBackgroundTaskIdentifier identifier_ = NYBBackgroundTaskInvalid;
  bool ended_ = false;
};

}  // namespace nyb::session
