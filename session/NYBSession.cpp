// The session object: making and starting it, the user's session, the three
// submissions, the add-on hook. Processing lives in SessionProcessing.cpp,
// the archive in SessionPersistence.cpp.
#include "NymbrelCore/NYBSession.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "NymbrelCore/NYBDocuments.h"
#include "platform/Log.h"
#include "session/SessionInternal.h"

namespace nyb {

// MARK: - Class-level operations

std::shared_ptr<NYBSession> NYBSessionClass::sharedInstance() const {
  // Made once, under the guard of a function-local static, and never destroyed.
  static const std::shared_ptr<NYBSession>* const shared =
      new std::shared_ptr<NYBSession>(sessionWithConfiguration({}));
  return *shared;
}

std::shared_ptr<NYBSession> NYBSessionClass::sessionWithConfiguration(
    NYBSessionConfiguration configuration) const {
  log("{}", libraryDescription());
  auto session = std::make_shared<NYBSession>(NYBSession::PrivateTag{});
  session->start(configuration);
  return session;
}

void NYBSessionClass::setEndHealthKitSessionOperation(
    EndHealthKitSessionOperation operation) const {
  std::lock_guard lock(addOnMutex_);
  endHealthKitSession_ = std::move(operation);
}

bool NYBSessionClass::instancesRespondToEndHealthKitSession() const {
  std::lock_guard lock(addOnMutex_);
  return static_cast<bool>(endHealthKitSession_);
}

NYBSessionClass::EndHealthKitSessionOperation NYBSessionClass::endHealthKitSessionOperation()
    const {
  std::lock_guard lock(addOnMutex_);
  return endHealthKitSession_;
}

// MARK: - Start-up

namespace {

// The internet-connection monitor, made by the given source or, without one,
// by the monitor's own factory.
std::shared_ptr<NYBReachability> internetMonitor(
    const std::shared_ptr<NYBReachabilitySource>& source) {
  if (!source) return NYBReachability::reachabilityForInternetConnection();
  sockaddr_in zero{};
  zero.sin_family = AF_INET;
  std::unique_ptr<NYBReachabilityTarget> target =
      source->createWithAddress(reinterpret_cast<const sockaddr*>(&zero));
  if (!target) return nullptr;
  return std::make_shared<NYBReachability>(std::move(target));
}

}  // namespace

NYBSession::NYBSession(PrivateTag) {}

void NYBSession::start(const NYBSessionConfiguration& configuration) {
  // Before anything else: another process's files are never touched.
  documentsHold_ = NYBDocuments::holdDocumentsDirectory();
  std::weak_ptr<NYBSession> weakSelf = std::static_pointer_cast<NYBSession>(shared_from_this());
  reachabilityObserver_ = NYBNotificationCenter::defaultCenter().addObserverForName(
      std::string(kReachabilityChangedNotification), NYBDynamicValue(),
      [weakSelf](const NYBNotification& notification) {
        if (auto self = weakSelf.lock()) self->reachabilityChanged(notification);
      });
  session::archiveWriteQueue();
  reachability_ = internetMonitor(configuration.reachabilitySource);
  if (reachability_) reachability_->startNotifier();
  loadSession();
  processQueue();
}

NYBSession::~NYBSession() {
  NYBNotificationCenter::defaultCenter().removeObserver(reachabilityObserver_);
}

// MARK: - The user's session

std::shared_ptr<NYBUser> NYBSession::user() const {
  return sessionData_ ? sessionData_->user().objectAs<NYBUser>() : nullptr;
}

void NYBSession::startSessionWithUser(const std::shared_ptr<NYBUser>& user) {
  session::finishWritesAtExit();
  if (sessionData_) endSession();
  sessionData_ = std::make_shared<NYBSessionData>(user);
  sessionData_->verifyImageDirectory();
  saveSessionData();
}

void NYBSession::endSession() {
  sessionData_ = nullptr;
  const std::filesystem::path archive = sessionDataURL().path();
  std::error_code error;
  // A file that failed to load is kept for recovery, never deleted.
  if (!damagedArchiveOnDisk_.load() && std::filesystem::symlink_status(archive, error).type() !=
                                           std::filesystem::file_type::not_found) {
    if (!std::filesystem::remove(archive, error) && error) {
      log("Error deleting session: {}", error.message());
    }
  }
  // A write already under way would put the ended session back on disk
  // (with its access token) when it finishes: delete once more behind it.
  // Saves asked for from now on are queued after this and write no session.
  archiveWorkPending_.fetch_add(1);
  session::archiveWriteQueue().async(
      [self = std::static_pointer_cast<NYBSession>(shared_from_this()), archive]() mutable {
        std::error_code ignored;
        if (!self->damagedArchiveOnDisk_.load()) std::filesystem::remove(archive, ignored);
        NYBDispatchQueue::main().async([self = std::move(self)]() mutable {
          const std::shared_ptr<NYBSession> owner = std::move(self);  // let go in the body
          owner->archiveWorkPending_.fetch_sub(1);
        });
      });
  if (respondsToEndHealthKitSession()) endHealthKitSession();
  apiClient_ = nullptr;
}

bool NYBSession::respondsToEndHealthKitSession() const {
  return classObject().instancesRespondToEndHealthKitSession();
}

void NYBSession::endHealthKitSession() {
  if (auto operation = classObject().endHealthKitSessionOperation()) operation(*this);
}

// MARK: - Submissions

void NYBSession::submitRecord(const std::shared_ptr<NYBRecord>& record) {
  if (!record) {
    log("NYBSEssion submitRecord: Error. Record cannot be nil");
    return;
  }
  submitRecords({record});
}

void NYBSession::submitRecord(const std::shared_ptr<NYBRecord>& record,
                              const std::shared_ptr<const NYBImage>& image) {
  if (!record || !image) {
    log("NYBSession submitRecord:withImage: Error. Record and image cannot be nil");
    return;
  }
  if (record->recordType() == NYBRecordTypeNone) return;
  if (sessionData_) sessionData_->addRecord(session::queuedCopy(record), image);
  saveSessionData();
  processQueue();
}

void NYBSession::submitRecords(const std::vector<std::shared_ptr<NYBRecord>>& records) {
  std::vector<std::shared_ptr<NYBRecord>> accepted;
  accepted.reserve(records.size());
  for (const auto& record : records) {
    if (record && record->recordType() != NYBRecordTypeNone) {
      accepted.push_back(session::queuedCopy(record));
    }
  }
  if (sessionData_) sessionData_->addRecords(accepted);
  saveSessionData();
  processQueue();
}

std::string NYBSession::description() const {
  return identityDescription() + "\n" + (sessionData_ ? sessionData_->description() : "(null)");
}

}  // namespace nyb
