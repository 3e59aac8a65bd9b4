// The upload engine: one request at a time, records before photos, and what
// each outcome does to the queue.
#include <fmt/format.h>

#include <atomic>
#include <utility>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBRunLoop.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Log.h"
#include "session/SessionInternal.h"

namespace nyb {

namespace session {

void finishWritesAtExit() {
  struct FinishWrites {
    ~FinishWrites() { archiveWriteQueue().flush(); }
  };
  thread_local FinishWrites guard;
  (void)guard;
}

std::shared_ptr<NYBRecord> queuedCopy(const std::shared_ptr<NYBRecord>& record) {
  return record->copyAs<NYBRecord>();
}

bool isServiceRefusal(const std::shared_ptr<NYBError>& error) {
  return error && error->domain() == kNYBHTTPErrorDomain && error->code() >= 400 &&
         error->code() <= 499;
}

std::shared_ptr<BackgroundTask> BackgroundTask::begin() {
  auto task = std::make_shared<BackgroundTask>();
  NYBBackgroundTaskIdentifier identifier =
      NYBApplication::sharedApplication().beginBackgroundTaskWithExpirationHandler(
          [task] { task->end(); });
  {
    std::lock_guard lock(task->mutex_);
    // An expiration that came before the identifier was known leaves the
    // task for us to end here.
    if (!task->ended_) {
      task->identifier_ = identifier;
      identifier = NYBBackgroundTaskInvalid;
    }
  }
  if (identifier != NYBBackgroundTaskInvalid) {
    NYBApplication::sharedApplication().endBackgroundTask(identifier);
  }
  return task;
}

void BackgroundTask::end() {
  NYBBackgroundTaskIdentifier identifier = NYBBackgroundTaskInvalid;
  {
    std::lock_guard lock(mutex_);
    ended_ = true;
    identifier = std::exchange(identifier_, NYBBackgroundTaskInvalid);
  }
  if (identifier != NYBBackgroundTaskInvalid) {
    NYBApplication::sharedApplication().endBackgroundTask(identifier);
  }
}

}  // namespace session

namespace {

NYBDictionary errorInfo(const std::shared_ptr<NYBError>& error) {
  return NYBDictionary{{"error", NYBDynamicValue(error)}};
}

void post(std::string_view name, NYBDynamicValue object, NYBDictionary userInfo = {}) {
  NYBNotificationCenter::defaultCenter().postNotificationName(std::string(name), std::move(object),
                                                              std::move(userInfo));
}

// What an observer is handed in place of a record the session keeps: its own
// copy. The kept one may be in a snapshot that the write queue is archiving,
// and the photo map finds its keys by value, so a change made by an observer
// must never reach it.
NYBDynamicValue observersCopy(const std::shared_ptr<NYBRecord>& record) {
  return record ? NYBDynamicValue(record->copyAs<NYBRecord>()) : NYBDynamicValue();
}

// A record the service refused, or one that can never be sent because its
// JSON document cannot be made: retrying either would only fail again.
bool dropsRecord(const std::shared_ptr<NYBError>& error) {
  return session::isServiceRefusal(error) || (error && error->domain() == kNYBAPIErrorDomain &&
                                              error->code() == NYBAPIErrorUnencodableRecord);
}

// The session data an answer may change: the one its request was sent for, as
// long as it is still the session's. Once the session has ended, or another
// has started (for the same user too), the record in flight belongs to the
// discarded queue, and nothing of its answer may reach the new one.
std::shared_ptr<NYBSessionData> sentFor(const NYBSession& session,
                                        const std::shared_ptr<NYBSessionData>& origin) {
  return session.sessionData() == origin ? origin : nullptr;
}

// Goes on with the queue. A completion that the API client called before its
// call returned (a record it refused at once) goes on from the main queue
// instead: going on in place would nest one call deeper per refused record.
void goOn(const std::shared_ptr<NYBSession>& session, bool insideCall) {
  if (!insideCall) {
    session->processQueue();
    return;
  }
  NYBDispatchQueue::main().async([self = session]() mutable {
    const std::shared_ptr<NYBSession> owner = std::move(self);  // let go in the body
    owner->processQueue();
  });
}

}  // namespace

std::shared_ptr<NYBAPIClient> NYBSession::apiClient() {
  if (!apiClient_) {
    if (std::shared_ptr<NYBUser> current = user()) {
      apiClient_ = std::make_shared<NYBAPIClient>(std::move(current));
    }
  }
  return apiClient_;
}

void NYBSession::reachabilityChanged(const NYBNotification& /*notification*/) {
  if (NYBRunLoop::isMainThread()) {
    processQueue();
    return;
  }
  // Any monitor may post, on the thread whose run loop it was started on; the
  // queue is the main thread's alone.
  NYBDispatchQueue::main().async([weakSelf = std::weak_ptr<NYBSession>(
                                      std::static_pointer_cast<NYBSession>(shared_from_this()))] {
    if (auto self = weakSelf.lock()) self->processQueue();
  });
}

void NYBSession::processQueue() {
  session::finishWritesAtExit();
  processRecords();
  processImages();
}

void NYBSession::processRecords() {
  if (!sessionData_ || !sessionData_->hasRecords()) return;
  if (processingRecord_) return;
  processingRecord_ = sessionData_->peekNextRecord();
  if (!processingRecord_) return;
  auto task = session::BackgroundTask::begin();

  std::shared_ptr<NYBAPIClient> client = apiClient();
  if (!client) {
    // No user, no client: the record stays marked in flight and the queue
    // stalls until the next session; but no answer will ever end this task.
    task->end();
    return;
  }
  auto self = std::static_pointer_cast<NYBSession>(shared_from_this());
  // Whether the client is still inside the call below: it calls the
  // completion at once for a record it refuses before sending.
  auto insideCall = std::make_shared<std::atomic<bool>>(true);
  NYBAPICompletion completion = [self, task, insideCall, origin = sessionData_](
                                    NYBDynamicValue result,
                                    std::shared_ptr<NYBError> error) mutable {
    // Held in the body, so that the session is never let go inside the
    // destruction of the block.
    const std::shared_ptr<NYBSession> owner = std::move(self);
    NYBSession& session = *owner;
    if (!session.processingRecord_) {
      session.saveSessionData();
      session.processingRecord_ = nullptr;
      task->end();
      return;
    }
    const std::shared_ptr<NYBSessionData> data = sentFor(session, origin);
    const std::shared_ptr<NYBRecord> record = session.processingRecord_;
    if (data) data->removeNextRecordIfMatch(record);

    // A queue that replaced the record's own has had no failure: it goes on
    // whatever the answer.
    bool continueQueue = true;
    if (auto accepted = result.objectAs<NYBRecord>()) {
      post(kNYBRecordSubmittedNotification, observersCopy(accepted));
      if (data && data->hasImageForRecord(record) && accepted->recordID().isPresent()) {
        data->replaceImageRecord(record, accepted);
      }
    } else if (dropsRecord(error)) {
      post(kNYBRecordSubmissionFailedNotification, observersCopy(record), errorInfo(error));
      if (data) data->removeImageForRecord(record);
    } else if (data) {
      // Back to the tail; the queue rests until the next trigger.
      data->addRecord(record);
      continueQueue = false;
    }
    session.saveSessionData();
    session.processingRecord_ = nullptr;
    if (continueQueue) goOn(owner, insideCall->load());
    task->end();
  };

  const std::shared_ptr<NYBRecord> record = processingRecord_;
  if (record->recordType() == NYBRecordTypeRoutine) {
    client->upsertRecord(record, std::move(completion));
  } else if (record->recordID().isPresent()) {
    client->updateRecord(record, std::move(completion));
  } else {
    client->postRecord(record, std::move(completion));
  }
  insideCall->store(false);
}

void NYBSession::processImages() {
  if (processingRecord_) return;
  if (!sessionData_ || !sessionData_->hasImages()) return;
  processingRecord_ = sessionData_->findNextImageRecordWithRecordID();
  if (!processingRecord_) return;

  std::shared_ptr<NYBImage> image = sessionData_->imageForRecord(processingRecord_);
  if (!image) {
    auto error = NYBError::errorWithDescription(
        std::string(kNYBSessionErrorDomain), NYBSessionErrorImageUnavailable,
        fmt::format("NYBSession unable to load image for activityID: {}",
                    processingRecord_->activityID().description()));
    post(kNYBRecordImageSubmissionFailedNotification, observersCopy(processingRecord_),
         errorInfo(error));
    sessionData_->removeImageForRecord(processingRecord_);
    saveSessionData();
    processingRecord_ = nullptr;
    processQueue();
    return;
  }

  auto task = session::BackgroundTask::begin();
  std::shared_ptr<NYBAPIClient> client = apiClient();
  if (!client) {
    task->end();
    return;
  }
  auto self = std::static_pointer_cast<NYBSession>(shared_from_this());
  NYBAPICompletion completion = [self, task, origin = sessionData_](
                                    NYBDynamicValue result,
                                    std::shared_ptr<NYBError> error) mutable {
    const std::shared_ptr<NYBSession> owner = std::move(self);
    NYBSession& session = *owner;
    const std::shared_ptr<NYBSessionData> data = sentFor(session, origin);
    std::shared_ptr<NYBRecord> record = session.processingRecord_;
    bool continueQueue = !data;
    if (error) {
      log("NYBSesssion upload image. Error: {}", shortenedForLog(error->localizedDescription()));
      if (session::isServiceRefusal(error)) {
        post(kNYBRecordImageSubmissionFailedNotification, observersCopy(record), errorInfo(error));
        if (data) data->removeImageForRecord(record);
        continueQueue = true;
      }
    } else {
      // The photo is dropped while the record still equals its key.
      if (data) data->removeImageForRecord(record);
      if (record) {
        // On a copy: the queued record may be in a snapshot that the write
        // queue is archiving right now. Nothing keeps the copy, so it is what
        // the observers get.
        record = record->copyAs<NYBRecord>();
        if (auto media = result.objectAs<NYBMedia>()) record->addMedia(media);
        session.processingRecord_ = record;
      }
      post(kNYBRecordImageSubmittedNotification, record);
      if (data && !data->hasImages()) data->eraseImageDirectoryContents();
      continueQueue = true;
    }
    session.saveSessionData();
    session.processingRecord_ = nullptr;
    if (continueQueue) session.processQueue();
    task->end();
  };
  client->uploadImage(std::move(image), processingRecord_, std::move(completion));
}

}  // namespace nyb
