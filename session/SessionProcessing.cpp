// The upload engine: one request at a time, records before photos, and what
// each outcome does to the queue.
#include <fmt/format.h>

#include <utility>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBSession.h"
#include "platform/Log.h"
#include "session/SessionInternal.h"

namespace nyb {

namespace session {

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

}  // namespace

std::shared_ptr<NYBAPIClient> NYBSession::apiClient() {
  if (!apiClient_) {
    if (std::shared_ptr<NYBUser> current = user()) {
      apiClient_ = std::make_shared<NYBAPIClient>(std::move(current));
    }
  }
  return apiClient_;
}

void NYBSession::reachabilityChanged(const NYBNotification& /*notification*/) { processQueue(); }

void NYBSession::processQueue() {
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
    // stalls, as it always has; but no answer will ever end this task.
    task->end();
    return;
  }
  auto self = std::static_pointer_cast<NYBSession>(shared_from_this());
  NYBAPICompletion completion = [self, task](NYBDynamicValue result,
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
    const std::shared_ptr<NYBSessionData> data = session.sessionData_;
    const std::shared_ptr<NYBRecord> record = session.processingRecord_;
    if (data) data->removeNextRecordIfMatch(record);

    if (auto accepted = result.objectAs<NYBRecord>()) {
      post(kNYBRecordSubmittedNotification, accepted);
      if (data && data->hasImageForRecord(record) && accepted->recordID().isPresent()) {
        data->replaceImageRecord(record, accepted);
      }
      session.saveSessionData();
      session.processingRecord_ = nullptr;
      session.processQueue();
    } else if (session::isServiceRefusal(error)) {
      post(kNYBRecordSubmissionFailedNotification, record, errorInfo(error));
      if (data) data->removeImageForRecord(record);
      session.saveSessionData();
      session.processingRecord_ = nullptr;
      session.processQueue();
    } else {
      if (data) data->addRecord(record);
      session.saveSessionData();
      session.processingRecord_ = nullptr;
    }
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
    post(kNYBRecordImageSubmissionFailedNotification, processingRecord_, errorInfo(error));
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
  client->uploadImage(
      std::move(image), processingRecord_,
      [self, task](NYBDynamicValue result, std::shared_ptr<NYBError> error) mutable {
        const std::shared_ptr<NYBSession> owner = std::move(self);
        NYBSession& session = *owner;
        const std::shared_ptr<NYBSessionData> data = session.sessionData_;
        std::shared_ptr<NYBRecord> record = session.processingRecord_;
        bool continueQueue = false;
        if (error) {
          log("NYBSesssion upload image. Error: {}", error->localizedDescription());
          if (session::isServiceRefusal(error)) {
            post(kNYBRecordImageSubmissionFailedNotification, record, errorInfo(error));
            if (data) data->removeImageForRecord(record);
            continueQueue = true;
          }
        } else {
          // The photo is dropped while the record still equals its key.
          if (data) data->removeImageForRecord(record);
          if (auto media = result.objectAs<NYBMedia>(); media && record) {
            // On a copy: the queued record may be in a snapshot that the
            // write queue is archiving right now.
            record = record->copyAs<NYBRecord>();
            record->addMedia(media);
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
      });
}

}  // namespace nyb
