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

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
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

using Clock = std::chrono::steady_clock;

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

// A whole request at the front of the buffer: its parts, and how many bytes
// it took; nullopt-like (consumed == 0) while incomplete.
struct Parsed {
  std::size_t consumed = 0;
  RecordedRequest request;
  bool wantsClose = false;
  bool expectsContinue = false;
  bool headComplete = false;
};

Parsed parse(const std::string& buffer, std::size_t connection) {
  Parsed parsed;
  const auto headEnd = buffer.find("\r\n\r\n");
  if (headEnd == std::string::npos) return parsed;
  parsed.headComplete = true;
  std::string_view head(buffer.data(), headEnd);
  const auto lineEnd = head.find("\r\n");
  std::string_view requestLine = head.substr(0, lineEnd);
  RecordedRequest& request = parsed.request;
  request.connection = connection;
  const auto firstSpace = requestLine.find(' ');
  const auto lastSpace = requestLine.rfind(' ');
  request.method = std::string(requestLine.substr(0, firstSpace));
  if (firstSpace != std::string_view::npos && lastSpace > firstSpace) {
    request.target = std::string(requestLine.substr(firstSpace + 1, lastSpace - firstSpace - 1));
  }
  std::string_view rest =
      lineEnd == std::string_view::npos ? std::string_view() : head.substr(lineEnd + 2);
  while (!rest.empty()) {
    const auto end = rest.find("\r\n");
    std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 2);
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    request.headers.emplace_back(std::string(line.substr(0, colon)),
                                 std::string(trim(line.substr(colon + 1))));
  }
  std::size_t length = 0;
  if (const std::string* value = findHeader(request.headers, "Content-Length")) {
    std::from_chars(value->data(), value->data() + value->size(), length);
  }
  if (const std::string* value = findHeader(request.headers, "Connection")) {
    parsed.wantsClose = sameName(*value, "close");
  }
  if (const std::string* value = findHeader(request.headers, "Expect")) {
    parsed.expectsContinue = sameName(*value, "100-continue");
  }
  const std::size_t bodyStart = headEnd + 4;
  if (buffer.size() - bodyStart < length) return parsed;
  request.body = buffer.substr(bodyStart, length);
  parsed.consumed = bodyStart + length;
  return parsed;
}

std::string statusAndHeaders(const ScriptedResponse& response, std::size_t contentLength,
                             bool addLength) {
  std::string out = "HTTP/1.1 " + std::to_string(response.status) + " " + response.reason + "\r\n";
  for (const auto& [name, value] : response.headers) out += name + ": " + value + "\r\n";
  if (addLength && !findHeader(response.headers, "Content-Length")) {
    out += "Content-Length: " + std::to_string(contentLength) + "\r\n";
  }
  out += "\r\n";
  return out;
}

ScriptedResponse ofKind(ScriptedResponse::Kind kind) {
  ScriptedResponse response;
  response.kind = kind;
  return response;
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
  ScriptedResponse response;
  response.status = status;
  response.reason = status < 400 ? "OK" : "Error";
  response.headers = {{"Content-Type", "application/json"}};
  response.body = std::move(body);
  return response;
}

ScriptedResponse ScriptedResponse::noContent() {
  ScriptedResponse response;
  response.status = 204;
  response.reason = "No Content";
  return response;
}

ScriptedResponse ScriptedResponse::closeMidAnswer(int status, std::string partialBody,
                                                  std::size_t promisedLength) {
  ScriptedResponse response = json(status, std::move(partialBody));
  response.kind = Kind::CloseMidAnswer;
  response.headers.emplace_back("Content-Length", std::to_string(promisedLength));
  return response;
}

ScriptedResponse ScriptedResponse::garbage(std::string bytes) {
  ScriptedResponse response = ofKind(Kind::Garbage);
  response.body = std::move(bytes);
  return response;
}

ScriptedResponse ScriptedResponse::reset() { return ofKind(Kind::Reset); }
ScriptedResponse ScriptedResponse::neverAnswer() { return ofKind(Kind::NeverAnswer); }
ScriptedResponse ScriptedResponse::closeWithoutAnswer() { return ofKind(Kind::CloseWithoutAnswer); }

ScriptedResponse ScriptedResponse::drip(int status, std::string body,
                                        std::chrono::milliseconds interval) {
  ScriptedResponse response = json(status, std::move(body));
  response.kind = Kind::Drip;
  response.interval = interval;
  return response;
}

struct LoopbackServer::State {
  int listener = -1;
  int wakeRead = -1;
  int wakeWrite = -1;
  int port = 0;
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
    while (!connection.silent && !connection.closing && connection.dripping.empty()) {
      Parsed parsed = parse(connection.buffer, connection.index);
      if (parsed.consumed == 0) {
        if (parsed.headComplete && parsed.expectsContinue &&
            connection.buffer.find("\r\n\r\n") + 4 == connection.buffer.size()) {
          sendAll(connection.fd, "HTTP/1.1 100 Continue\r\n\r\n");
        }
        return;
      }
      connection.buffer.erase(0, parsed.consumed);
      const ScriptedResponse response = nextResponse(std::move(parsed.request));
      switch (response.kind) {
        case ScriptedResponse::Kind::Answer: {
          const bool noBody = response.status == 204 || response.status == 304;
          sendAll(connection.fd, statusAndHeaders(response, response.body.size(), !noBody) +
                                     (noBody ? std::string() : response.body));
          if (parsed.wantsClose) connection.closing = true;
          break;
        }
        case ScriptedResponse::Kind::CloseMidAnswer:
          sendAll(connection.fd, statusAndHeaders(response, 0, false) + response.body);
          connection.closing = true;
          break;
        case ScriptedResponse::Kind::Garbage:
          sendAll(connection.fd, response.body);
          connection.closing = true;
          break;
        case ScriptedResponse::Kind::Reset: {
          linger hard{1, 0};
          ::setsockopt(connection.fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
          connection.closing = true;
          break;
        }
        case ScriptedResponse::Kind::NeverAnswer:
          connection.silent = true;
          break;
        case ScriptedResponse::Kind::CloseWithoutAnswer:
          connection.closing = true;
          break;
        case ScriptedResponse::Kind::Drip:
          sendAll(connection.fd, statusAndHeaders(response, response.body.size(), true));
          connection.dripping = response.body;
          connection.dripInterval = response.interval;
          connection.nextDrip = Clock::now() + response.interval;
          break;
      }
    }
  }

  // Sends the next byte of every drip that is due; the wait until the next
  // one is due, or -1 when nothing drips.
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
      const auto due = std::chrono::ceil<std::chrono::milliseconds>(connection.nextDrip - now);
      wait =
          wait < 0 ? static_cast<int>(due.count()) : std::min(wait, static_cast<int>(due.count()));
    }
    return wait;
  }

  void loop() {
    std::list<Connection> connections;
    for (;;) {
      const int wait = drip(connections);
      std::vector<pollfd> fds;
      fds.push_back({wakeRead, POLLIN, 0});
      fds.push_back({listener, POLLIN, 0});
      for (const auto& connection : connections) fds.push_back({connection.fd, POLLIN, 0});
      if (::poll(fds.data(), fds.size(), wait) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      if (fds[0].revents != 0) break;
      if (fds[1].revents & POLLIN) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
          const int one = 1;
          ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
          std::lock_guard lock(mutex);
          Connection& connection = connections.emplace_back();
          connection.fd = fd;
          connection.index = connectionsAccepted++;
        }
      }
      std::size_t i = 2;
      for (auto it = connections.begin(); it != connections.end(); ++i) {
        // Connections accepted in this round have no poll entry yet.
        if (i >= fds.size()) break;
        Connection& connection = *it;
        if (fds[i].revents != 0) {
          char chunk[65536];
          const ssize_t n = ::recv(connection.fd, chunk, sizeof chunk, 0);
          if (n <= 0) {
            connection.closing = true;
          } else if (!connection.silent) {
            connection.buffer.append(chunk, static_cast<std::size_t>(n));
            serve(connection);
          }
        }
        if (connection.closing) {
          ::close(connection.fd);
          it = connections.erase(it);
        } else {
          ++it;
        }
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
  address.sin_port = 0;
  s.listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (s.listener < 0) throw std::runtime_error("LoopbackServer: socket failed");
  if (::bind(s.listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(s.listener, 64) != 0) {
    ::close(s.listener);
    throw std::runtime_error("LoopbackServer: bind or listen failed");
  }
  socklen_t length = sizeof address;
  ::getsockname(s.listener, reinterpret_cast<sockaddr*>(&address), &length);
  s.port = ntohs(address.sin_port);
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
    ::close(s.listener);
    throw std::runtime_error("LoopbackServer: pipe failed");
  }
  s.wakeRead = pipeFds[0];
  s.wakeWrite = pipeFds[1];
  s.thread = std::thread([state = state_] { state->loop(); });
}

LoopbackServer::~LoopbackServer() {
  const char byte = 0;
  [[maybe_unused]] ssize_t written = ::write(state_->wakeWrite, &byte, 1);
  state_->thread.join();
  ::close(state_->listener);
  ::close(state_->wakeRead);
  ::close(state_->wakeWrite);
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
