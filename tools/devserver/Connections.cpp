#include "Connections.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <charconv>
#include <filesystem>
#include <functional>
#include <string>

namespace nyb::devserver {

namespace {

struct Endpoint {
  std::string address;
  int port = -1;
};

bool endpoint(const sockaddr_storage& storage, socklen_t length, Endpoint& out) {
  char host[NI_MAXHOST];
  char service[NI_MAXSERV];
  if (getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, host, sizeof host, service,
                  sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return false;
  }
  out.address = host;
  out.port = std::stoi(service);
  return true;
}

// Calls `visit(fd, local, remote)` for each connected TCP socket of the process.
void forEachConnection(const std::function<bool(int, const Endpoint&, const Endpoint&)>& visit) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    auto name = entry.path().filename().string();
    int fd = -1;
    if (std::from_chars(name.data(), name.data() + name.size(), fd).ec != std::errc()) continue;
    sockaddr_storage local{}, remote{};
    socklen_t localLength = sizeof local, remoteLength = sizeof remote;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) continue;
    if (local.ss_family != AF_INET && local.ss_family != AF_INET6) continue;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0) continue;
    Endpoint localEnd, remoteEnd;
    if (!endpoint(local, localLength, localEnd) || !endpoint(remote, remoteLength, remoteEnd)) {
      continue;
    }
    if (!visit(fd, localEnd, remoteEnd)) return;
  }
}

}  // namespace

int connectionSocket(const httplib::Request& request) {
  int found = -1;
  forEachConnection([&](int fd, const Endpoint& local, const Endpoint& remote) {
    if (local.port == request.local_port && remote.port == request.remote_port &&
        remote.address == request.remote_addr) {
      found = fd;
      return false;
    }
    return true;
  });
  return found;
}

bool closeWithoutAnswer(const httplib::Request& request) {
  int fd = connectionSocket(request);
  return fd >= 0 && shutdown(fd, SHUT_RDWR) == 0;
}

bool hasNoDelay(const httplib::Request& request) {
  int fd = connectionSocket(request);
  int value = 0;
  socklen_t length = sizeof value;
  return fd >= 0 && getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &value, &length) == 0 && value != 0;
}

void endIdleConnections(int port) {
  forEachConnection([&](int fd, const Endpoint& local, const Endpoint&) {
    if (local.port == port) shutdown(fd, SHUT_RD);
    return true;
  });
}

}  // namespace nyb::devserver
