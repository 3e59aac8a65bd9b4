#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "NymbrelCore/NYBConstants.h"

namespace nyb::test {

namespace {

using Clock = std::chrono::steady_clock;

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

void sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
}

const std::string* findHeader(const HeaderList& headers, std::string_view name) {
  for (const auto& [field, value] : headers) {
    if (sameName(field, name)) return &value;
  }
  return nullptr;
}

struct Connection {
  int fd = -1;
  std::size_t index = 0;
  std::string buffer;
  bool silent = false;  // never answers again; waits for the client to leave
  bool closing = false;
  // A body still being dripped; the connection answers nothing else meanwhile.
  std::string dripping;
  std::chrono::milliseconds dripInterval{0};
  Clock::time_point nextDrip;
};

// Takes a whole request off the front of the buffer; false while it is incomplete.
bool takeRequest(std::string& buffer, RecordedRequest& request, bool& wantsClose) {
  const auto headEnd = buffer.find("\r\n\r\n");
  if (headEnd == std::string::npos) return false;
  std::string_view head(buffer.data(), headEnd);
  std::string_view line = head.substr(0, head.find("\r\n"));
  const auto firstSpace = line.find(' '), lastSpace = line.rfind(' ');
  request.method = std::string(line.substr(0, firstSpace));
  if (firstSpace != std::string_view::npos && lastSpace > firstSpace) {
    request.target = std::string(line.substr(firstSpace + 1, lastSpace - firstSpace - 1));
  }
  for (head.remove_prefix(std::min(head.size(), line.size() + 2)); !head.empty();) {
    line = head.substr(0, head.find("\r\n"));
    head.remove_prefix(std::min(head.size(), line.size() + 2));
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    value.remove_suffix(value.size() - (value.find_last_not_of(" \t") + 1));
    request.headers.emplace_back(line.substr(0, colon), value);
  }
  const std::string* length = findHeader(request.headers, "Content-Length");
  std::size_t bodyStart = headEnd + 4, bodyLength = 0;
  if (length) std::from_chars(length->data(), length->data() + length->size(), bodyLength);
  if (buffer.size() - bodyStart < bodyLength) return false;
  const std::string* connection = findHeader(request.headers, "Connection");
  wantsClose = connection && sameName(*connection, "close");
  request.body = buffer.substr(bodyStart, bodyLength);
  buffer.erase(0, bodyStart + bodyLength);
  return true;
}

std::string statusAndHeaders(const ScriptedResponse& response, bool addLength) {
  std::string out = "HTTP/1.1 " + std::to_string(response.status) + " " + response.reason + "\r\n";
  for (const auto& [name, value] : response.headers) out += name + ": " + value + "\r\n";
  if (addLength && !findHeader(response.headers, "Content-Length")) {
    out += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
  }
  return out + "\r\n";
}

}  // namespace

const std::string* RecordedRequest::header(std::string_view name) const {
  return findHeader(headers, name);
}

std::vector<std::string> RecordedRequest::headerNames() const {
  std::vector<std::string> names;
  for (const auto& header : headers) names.push_back(header.first);
  return names;
}

ScriptedResponse ScriptedResponse::json(int status, std::string body) {
  return {Kind::Answer,
          status,
          status < 400 ? "OK" : "Error",
          {{"Content-Type", "application/json"}},
          std::move(body),
          {}};
}

ScriptedResponse ScriptedResponse::noContent() {
  return {Kind::Answer, 204, "No Content", {}, {}, {}};
}

ScriptedResponse ScriptedResponse::closeMidAnswer(int status, std::string partialBody,
                                                  std::size_t promisedLength) {
  ScriptedResponse response = json(status, std::move(partialBody));
  response.kind = Kind::CloseMidAnswer;
  response.headers.emplace_back("Content-Length", std::to_string(promisedLength));
  return response;
}

ScriptedResponse ScriptedResponse::garbage(std::string bytes) {
  return {Kind::Garbage, 200, "OK", {}, std::move(bytes), {}};
}

ScriptedResponse ScriptedResponse::reset() { return {Kind::Reset, 200, "OK", {}, {}, {}}; }
ScriptedResponse ScriptedResponse::neverAnswer() {
  return {Kind::NeverAnswer, 200, "OK", {}, {}, {}};
}
ScriptedResponse ScriptedResponse::closeWithoutAnswer() {
  return {Kind::CloseWithoutAnswer, 200, "OK", {}, {}, {}};
}

ScriptedResponse ScriptedResponse::drip(int status, std::string body,
                                        std::chrono::milliseconds interval) {
  ScriptedResponse response = json(status, std::move(body));
  response.kind = Kind::Drip;
  response.interval = interval;
  return response;
}

struct LoopbackServer::State {
  int listener = -1, wakeRead = -1, wakeWrite = -1, port = 0;
  std::string address;
  std::thread thread;

  mutable std::mutex mutex;
  mutable std::condition_variable recorded;
  std::vector<RecordedRequest> requests;
  std::deque<ScriptedResponse> script;
  ScriptedResponse defaultResponse = ScriptedResponse::json(200, "{}");
  std::size_t connectionsAccepted = 0;

  ScriptedResponse nextResponse(RecordedRequest request) {
    std::lock_guard lock(mutex);
    requests.push_back(std::move(request));
    recorded.notify_all();
    if (script.empty()) return defaultResponse;
    ScriptedResponse response = std::move(script.front());
    script.pop_front();
    return response;
  }

  // Answers every whole request in the connection's buffer.
  void serve(Connection& connection) {
    RecordedRequest request;
    bool wantsClose = false;
    while (!connection.silent && !connection.closing && connection.dripping.empty() &&
           takeRequest(connection.buffer, request, wantsClose)) {
      request.connection = connection.index;
      const ScriptedResponse response = nextResponse(std::exchange(request, {}));
      using Kind = ScriptedResponse::Kind;
      const int fd = connection.fd;
      connection.closing = response.kind != Kind::Answer && response.kind != Kind::Drip;
      if (response.kind == Kind::Answer) {
        const bool noBody = response.status == 204 || response.status == 304;
        sendAll(fd, statusAndHeaders(response, !noBody) + (noBody ? "" : response.body));
        connection.closing = wantsClose;
      } else if (response.kind == Kind::CloseMidAnswer) {
        sendAll(fd, statusAndHeaders(response, false) + response.body);
      } else if (response.kind == Kind::Garbage) {
        sendAll(fd, response.body);
      } else if (response.kind == Kind::Reset) {
        linger hard{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
      } else if (response.kind == Kind::NeverAnswer) {
        connection.closing = false;
        connection.silent = true;
      } else if (response.kind == Kind::Drip) {
        sendAll(fd, statusAndHeaders(response, true));
        connection.dripping = response.body;
        connection.dripInterval = response.interval;
        connection.nextDrip = Clock::now() + response.interval;
      }
    }
  }

  // Sends the next byte of every drip that is due; the wait until the next one is due, or -1
  // when nothing drips.
  int drip(std::list<Connection>& connections) {
    const auto now = Clock::now();
    int wait = -1;
    for (Connection& connection : connections) {
      if (connection.dripping.empty()) continue;
      if (now >= connection.nextDrip) {
        sendAll(connection.fd, connection.dripping.substr(0, 1));
        connection.dripping.erase(0, 1);
        connection.nextDrip = now + connection.dripInterval;
        if (connection.dripping.empty()) {
          serve(connection);
          continue;
        }
      }
      const int due = static_cast<int>(
          std::chrono::ceil<std::chrono::milliseconds>(connection.nextDrip - now).count());
      wait = wait < 0 ? due : std::min(wait, due);
    }
    return wait;
  }

  void loop() {
    std::list<Connection> connections;
    for (;;) {
      const int wait = drip(connections);
      std::vector<pollfd> fds = {{wakeRead, POLLIN, 0}, {listener, POLLIN, 0}};
      for (const auto& connection : connections) fds.push_back({connection.fd, POLLIN, 0});
      if (::poll(fds.data(), fds.size(), wait) < 0 && errno != EINTR) break;
      if (fds[0].revents != 0) break;
      auto it = connections.begin();
      for (std::size_t i = 2; i < fds.size(); ++i) {
        Connection& connection = *it;
        if (fds[i].revents != 0) {
          char chunk[65536];
          const ssize_t n = ::recv(connection.fd, chunk, sizeof chunk, 0);
          connection.closing |= n <= 0;
          if (n > 0 && !connection.silent) {
            connection.buffer.append(chunk, static_cast<std::size_t>(n));
            serve(connection);
          }
        }
        if (connection.closing) ::close(connection.fd);
        it = connection.closing ? connections.erase(it) : std::next(it);
      }
      if (fds[1].revents & POLLIN) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::lock_guard lock(mutex);
        Connection& connection = connections.emplace_back();
        connection.fd = fd;
        connection.index = connectionsAccepted++;
      }
    }
    for (auto& connection : connections) ::close(connection.fd);
  }
};

LoopbackServer::LoopbackServer() : LoopbackServer("127.0.0.1") {}

LoopbackServer::LoopbackServer(const std::string& bindAddress) : state_(std::make_shared<State>()) {
  State& s = *state_;
  s.address = bindAddress;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (::inet_pton(AF_INET, bindAddress.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("LoopbackServer: not an IPv4 address: " + bindAddress);
  }
  socklen_t length = sizeof address;
  int pipeFds[2];
  s.listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (s.listener < 0 || ::bind(s.listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(s.listener, 64) != 0 || ::pipe2(pipeFds, O_CLOEXEC) != 0) {
    ::close(s.listener);
    throw std::runtime_error("LoopbackServer: cannot listen on " + bindAddress);
  }
  ::getsockname(s.listener, reinterpret_cast<sockaddr*>(&address), &length);
  s.port = ntohs(address.sin_port);
  s.wakeRead = pipeFds[0];
  s.wakeWrite = pipeFds[1];
  s.thread = std::thread([state = state_] { state->loop(); });
}

LoopbackServer::~LoopbackServer() {
  const char byte = 0;
  [[maybe_unused]] ssize_t written = ::write(state_->wakeWrite, &byte, 1);
  state_->thread.join();
  for (int fd : {state_->listener, state_->wakeRead, state_->wakeWrite}) ::close(fd);
}

int LoopbackServer::port() const { return state_->port; }

std::string LoopbackServer::baseURL() const {
  return "http://" + state_->address + ":" + std::to_string(state_->port);
}

void LoopbackServer::enqueue(ScriptedResponse response) {
  std::lock_guard lock(state_->mutex);
  state_->script.push_back(std::move(response));
}

void LoopbackServer::setDefaultResponse(ScriptedResponse response) {
  std::lock_guard lock(state_->mutex);
  state_->defaultResponse = std::move(response);
}

void LoopbackServer::reset() {
  std::lock_guard lock(state_->mutex);
  state_->requests.clear();
  state_->script.clear();
}

std::vector<RecordedRequest> LoopbackServer::requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

bool LoopbackServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(state_->mutex);
  return state_->recorded.wait_for(lock, timeout, [&] { return state_->requests.size() >= count; });
}

std::size_t LoopbackServer::connectionCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->connectionsAccepted;
}

LoopbackServer& LoopbackServer::shared() {
  // Never destroyed: requests may still be in flight when the program ends.
  static LoopbackServer* const instance = [] {
    auto* server = new LoopbackServer;
    NYBSetRequestBaseURL(server->baseURL() + "/v1");
    return server;
  }();
  return *instance;
}

}  // namespace nyb::test
