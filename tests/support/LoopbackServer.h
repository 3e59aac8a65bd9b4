// A raw-socket HTTP/1.1 server on a loopback address for tests and benchmarks: the one harness
// every test that needs a raw server uses. It listens on an ephemeral port from construction and
// serves on a thread of its own. Every request is recorded exactly as it arrived, with the index
// of the connection it came on (so that reuse of a kept-alive connection is visible). Requests
// are answered in order from a script of responses, then by the default response (200 "{}"
// unless set). Every member may be called from any thread; shared() gives the one server a test
// program points the library at.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nyb::test {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct RecordedRequest {
  std::size_t connection = 0;  // 0 for the first connection accepted, and so on
  std::string method;
  std::string target;  // as written on the request line
  HeaderList headers;  // in the order received
  std::string body;

  // The first field of that name, in any case; null when there is none.
  const std::string* header(std::string_view name) const;
  // The field names, in order.
  std::vector<std::string> headerNames() const;
};

struct ScriptedResponse {
  enum class Kind {
    Answer,              // status line, headers, body; the connection stays open
    CloseMidAnswer,      // status line and headers promising more body than is sent, then close
    Garbage,             // the body bytes alone, not HTTP, then close
    Reset,               // the connection is reset without a byte of answer
    NeverAnswer,         // nothing, for as long as the client waits
    CloseWithoutAnswer,  // the request is read whole, then the connection is closed
    Drip,                // status line and headers at once, then one body byte per interval
  };
  Kind kind = Kind::Answer;
  int status = 200;
  std::string reason = "OK";
  HeaderList headers;  // Content-Length is added unless given (and for 204)
  std::string body;
  std::chrono::milliseconds interval{0};  // between the bytes of a drip

  static ScriptedResponse json(int status, std::string body);
  static ScriptedResponse noContent();
  static ScriptedResponse closeMidAnswer(int status, std::string partialBody,
                                         std::size_t promisedLength);
  static ScriptedResponse garbage(std::string bytes);
  static ScriptedResponse reset();
  static ScriptedResponse neverAnswer();
  static ScriptedResponse closeWithoutAnswer();
  static ScriptedResponse drip(int status, std::string body, std::chrono::milliseconds interval);
};

class LoopbackServer {
 public:
  LoopbackServer();
  // Listens on another loopback address, such as "127.0.0.2".
  explicit LoopbackServer(const std::string& address);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const;
  // "http://<address>:<port>"
  std::string baseURL() const;

  // Appends to the script; each request takes the first response left.
  void enqueue(ScriptedResponse response);
  void setDefaultResponse(ScriptedResponse response);
  // Forgets the recorded requests and the script (open connections stay).
  void reset();

  std::vector<RecordedRequest> requests() const;
  // Waits until at least count requests were recorded, or the timeout passes.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;
  // How many connections were accepted so far.
  std::size_t connectionCount() const;

  // One server for the whole test program, made on first use, that the library's request
  // base URL ("<baseURL>/v1") names: the library keeps one base URL per process.
  static LoopbackServer& shared();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace nyb::test
