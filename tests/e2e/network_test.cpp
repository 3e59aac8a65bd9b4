// The session on a real network: the devserver in one network namespace, the host program in
// another, joined by a veth pair, the default route its only way there. Removing the route leaves
// a record waiting; restoring it drains the queue. Skipped where namespaces cannot be made.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace nyb::test {
namespace {

using namespace std::chrono_literals;

bool ip(const std::string& arguments) {
  return std::system(("ip " + arguments + " >/dev/null 2>&1").c_str()) == 0;
}

// The client and server namespaces and the link between them; all removed
// when the object goes.
class TwoNamespaces {
 public:
  TwoNamespaces() {
    const std::string id = std::to_string(::getpid());
    client = "nyb-cli-" + id;
    serverSpace = "nyb-srv-" + id;
    clientLink = "nybc" + id;
    serverLink = "nybs" + id;
    made = ip("netns add " + client) && ip("netns add " + serverSpace) &&
           ip("link add " + clientLink + " type veth peer name " + serverLink) &&
           ip("link set " + clientLink + " netns " + client) &&
           ip("link set " + serverLink + " netns " + serverSpace) &&
           ip("-n " + client + " link set lo up") && ip("-n " + serverSpace + " link set lo up") &&
           ip("-n " + client + " addr add 10.77.1.1/32 dev " + clientLink) &&
           ip("-n " + serverSpace + " addr add 10.77.1.2/32 dev " + serverLink) &&
           ip("-n " + client + " link set " + clientLink + " up") &&
           ip("-n " + serverSpace + " link set " + serverLink + " up") &&
           ip("-n " + serverSpace + " route add 10.77.1.1/32 dev " + serverLink) &&
           defaultRoute(true);
  }
  ~TwoNamespaces() {
    ip("netns del " + client);
    ip("netns del " + serverSpace);
  }
  bool defaultRoute(bool present) const {
    return ip("-n " + client + " route " + (present ? "add" : "del") + " default dev " +
              clientLink);
  }

  std::string client, serverSpace, clientLink, serverLink;
  bool made = false;
};

TEST(RealNetwork, TheQueueWaitsWhileTheRouteIsGoneAndDrainsWhenItReturns) {
  if (::geteuid() != 0) GTEST_SKIP() << "making network namespaces needs root";
  TwoNamespaces spaces;
  if (!spaces.made) GTEST_SKIP() << "cannot make network namespaces and a veth pair here";

  ChildProcess server({"ip", "netns", "exec", spaces.serverSpace, NYB_DEVSERVER_PATH, "--port", "0",
                       "--host", "10.77.1.2", "--user", "acme:u1:tok1"});
  const auto baseURL = server.readLine(30s);  // the first line names it
  ASSERT_EQ(baseURL.value_or("").rfind("http://10.77.1.2:", 0), 0U);
  TempDir documents;
  ::setenv("NYMBREL_BASE_URL", baseURL->c_str(), 1);
  ChildProcess host(
      {"ip", "netns", "exec", spaces.client, NYB_NETWORK_HOST_PATH, documents.path().string()});
  ASSERT_EQ(host.readLine(30s), "ready 1");  // reachable over the default route

  ASSERT_TRUE(spaces.defaultRoute(false));
  EXPECT_EQ(host.readLine(30s), "reachability 0");
  EXPECT_EQ(host.readLine(60s), "waiting");  // the upload failed: no route

  ASSERT_TRUE(spaces.defaultRoute(true));
  EXPECT_EQ(host.readLine(30s), "reachability 1");
  const auto submitted = host.readLine(60s);
  ASSERT_TRUE(submitted.has_value());
  EXPECT_EQ(submitted->rfind("submitted ", 0), 0U) << *submitted;
  EXPECT_EQ(submitted->size(), std::string("submitted ").size() + 24);  // the service's _id
  EXPECT_EQ(host.wait(), 0);
  server.kill(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
}

}  // namespace
}  // namespace nyb::test
