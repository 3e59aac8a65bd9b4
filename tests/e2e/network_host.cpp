// The host application of the network test, run inside a network namespace of its own with
// NYMBREL_BASE_URL naming a devserver that only the default route reaches:
//   nyb_network_host <documents>
// It prints "ready <status>", then "reachability <status>" on every change notice. At the first
// notice that the network is gone it submits a record and prints "waiting" once the failed upload
// left it queued, then "submitted <recordID>" when the service accepts it, and exits 0 (1 when
// that did not happen within two minutes).
#include <cstdlib>
#include <iostream>
#include <string>

#include "NymbrelCore/NymbrelCore.h"
#include "service/RequestBaseURL.h"

using namespace nyb;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: nyb_network_host <documents>\n";
    return 2;
  }
  NYBDocuments::setDocumentsDirectory(argv[1]);
  // The devserver sits on a private address of the test's own namespaces.
  if (const char* base = std::getenv("NYMBREL_BASE_URL")) service::setRequestBaseURLUnchecked(base);
  std::shared_ptr<NYBSession> session;
  bool submitted = false;
  std::string acceptedID;
  auto& center = NYBNotificationCenter::defaultCenter();
  center.addObserverForName(
      std::string(kReachabilityChangedNotification), NYBDynamicValue(),
      [&](const NYBNotification& notification) {
        const auto status =
            notification.object().objectAs<NYBReachability>()->currentReachabilityStatus();
        std::cout << "reachability " << status << std::endl;
        if (status == NYBNotReachable && !submitted && session) {
          submitted = true;
          auto record = std::make_shared<NYBWeight>();
          record->setActivityID("offline-1");
          record->setTimestamp(NYBDate(1'456'841'109));
          record->setWeight(71.25);
          session->submitRecord(record);
        }
      });
  center.addObserverForName(
      std::string(kNYBRecordSubmittedNotification), NYBDynamicValue(),
      [&](const NYBNotification& notification) {
        acceptedID = notification.object().objectAs<NYBRecord>()->recordID().description();
      });

  session = NYBSession::sessionWithConfiguration();
  session->startSessionWithUser(std::make_shared<NYBUser>("u1", "acme", "tok1"));
  std::cout << "ready " << session->reachability()->currentReachabilityStatus() << std::endl;

  bool saidWaiting = false;
  const bool done = NYBRunLoop::main().runUntil(
      [&] {
        if (submitted && !saidWaiting && !session->processingRecord() &&
            session->sessionData()->hasRecords()) {
          saidWaiting = true;
          std::cout << "waiting" << std::endl;
        }
        return !acceptedID.empty() && !session->processingRecord();
      },
      std::chrono::minutes(2));
  if (!done) return 1;
  session->waitForArchiveWrites();
  std::cout << "submitted " << acceptedID << std::endl;
  return 0;
}
