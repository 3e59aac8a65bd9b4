// NYBURLSession: the platform's HTTP client: URL requests, HTTP responses,
// data tasks and the session that runs them.
//
// The shared session (sharedSession()) and every session made with
// sessionWithConfiguration() run their exchanges over libcurl. The thread
// that starts an exchange (resume()) sets it up and writes its request itself,
// without waiting on the network; one worker thread per session waits for the
// answers and is the session's callback queue: every completion handler runs
// there, exactly once, whatever happened (an answer, a refused or lost
// connection, a time-out, a request without a URL). While one runs, the
// session's exchanges make no progress, but for the first write of one started
// meanwhile. Connections to a host are kept open and reused. Answers are asked
// for plain or gzip-compressed (and decoded). TLS peer and host verification
// are always on; proxies come from the environment (http_proxy, https_proxy,
// no_proxy).
//
// One exchange writes at most one request: when a kept-alive connection dies
// before an answer, the request is not sent again (the server may hold it);
// the exchange fails with NYBURLErrorNetworkConnectionLost. Redirects are
// never followed: an answer with a 3xx status and a Location field fails with
// NYBURLErrorHTTPTooManyRedirects, so nothing the request carries reaches
// another origin. An answer is bounded (NYBURLSessionConfiguration): a body
// (after content decoding) or header lines beyond their limit fail with
// NYBURLErrorDataLengthExceedsMaximum; an exchange that runs past its total
// time, or makes no progress for its time-out (60 seconds unless the request
// says otherwise), fails with NYBURLErrorTimedOut.
//
// A transport failure is an NYBError of kNYBURLErrorDomain whose code is one
// of NYBURLErrorCode; its description never holds the request's URL.
//
// NYBURLSession is also the interface a host or a test implements to replace
// the transport: startDataTask() is the one operation to provide, and
// setSharedSession() installs the replacement as the shared session.
// Sessions may be used from any thread. Destroying a libcurl session ends its
// unfinished exchanges with NYBURLErrorCancelled and stops its thread; the
// shared session is never destroyed.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBError.h"
#include "NymbrelCore/NYBURL.h"

namespace nyb {

inline constexpr std::string_view kNYBURLErrorDomain = "NYBURLErrorDomain";

// The platform's codes for transport failures.
enum NYBURLErrorCode : std::int64_t {
  NYBURLErrorUnknown = -1,
  NYBURLErrorCancelled = -999,
  NYBURLErrorTimedOut = -1001,
  NYBURLErrorUnsupportedURL = -1002,
  NYBURLErrorCannotFindHost = -1003,
  NYBURLErrorCannotConnectToHost = -1004,
  NYBURLErrorNetworkConnectionLost = -1005,
  NYBURLErrorHTTPTooManyRedirects = -1007,
  NYBURLErrorBadServerResponse = -1011,
  NYBURLErrorDataLengthExceedsMaximum = -1103,
  NYBURLErrorSecureConnectionFailed = -1200,
  NYBURLErrorServerCertificateUntrusted = -1202,
};

using NYBHTTPHeaderFields = std::vector<std::pair<std::string, std::string>>;

// A URL request. Header fields keep the order in which they were first set.
struct NYB_EXPORT NYBURLRequest {
  std::optional<NYBURL> URL;
  // The method; "GET" unless set.
  std::string HTTPMethod = "GET";
  NYBHTTPHeaderFields allHTTPHeaderFields;
  std::optional<NYBData> HTTPBody;
  // Seconds without progress before the exchange fails; absent: the
  // session's configuration decides.
  std::optional<double> timeoutInterval;

  // Replaces the value of a field of that name (any case) or appends the field.
  void setValueForHTTPHeaderField(std::string value, std::string_view field);
  const std::string* valueForHTTPHeaderField(std::string_view field) const;
};

// The answer's status line and header fields.
class NYB_EXPORT NYBHTTPURLResponse {
 public:
  NYBHTTPURLResponse(std::optional<NYBURL> url, std::int64_t statusCode,
                     NYBHTTPHeaderFields headerFields);

  const std::optional<NYBURL>& URL() const { return url_; }
  std::int64_t statusCode() const { return statusCode_; }
  // In the order received; a field sent twice appears twice.
  const NYBHTTPHeaderFields& allHeaderFields() const { return headerFields_; }
  // The first field of that name, in any case.
  const std::string* valueForHTTPHeaderField(std::string_view field) const;

  // The platform's reason phrase for a status code, in lower case: "bad
  // request" for 400, "not found" for 404, "internal server error" for 500.
  static std::string localizedStringForStatusCode(std::int64_t statusCode);

 private:
  std::optional<NYBURL> url_;
  std::int64_t statusCode_;
  NYBHTTPHeaderFields headerFields_;
};

// The end of an exchange: the body (present, possibly empty, when an answer
// came in full), the response (present once a status line was read, even if
// the exchange then failed) and the transport error (absent on success).
using NYBURLSessionCompletion =
    std::function<void(std::optional<NYBData> data, std::shared_ptr<const NYBHTTPURLResponse>,
                       std::shared_ptr<NYBError> error)>;

struct NYB_EXPORT NYBURLSessionConfiguration {
  // Seconds without progress, for requests that do not set their own.
  double timeoutIntervalForRequest = 60.0;
  // Seconds one exchange may take in all, however steadily bytes move: a
  // 20 MB photo still goes up at a third of a megabit per second.
  double timeoutIntervalForResource = 600.0;
  // The most bytes of an answer's body, counted after content decoding.
  std::size_t maximumResponseBodyBytes = 4 * 1024 * 1024;
  // The most bytes of an answer's header lines, interim answers included.
  std::size_t maximumResponseHeaderBytes = 64 * 1024;
};

class NYBURLSession;

// One exchange, made by dataTaskWithRequest() and started by resume().
class NYB_EXPORT NYBURLSessionDataTask {
 public:
  NYBURLSessionDataTask(std::shared_ptr<NYBURLSession> session, NYBURLRequest request,
                        NYBURLSessionCompletion completionHandler);
  // Starts the exchange; later calls do nothing.
  void resume();
  const NYBURLRequest& originalRequest() const { return request_; }

 private:
  std::shared_ptr<NYBURLSession> session_;
  NYBURLRequest request_;
  NYBURLSessionCompletion completionHandler_;
  bool resumed_ = false;
};

class NYB_EXPORT NYBURLSession : public std::enable_shared_from_this<NYBURLSession> {
 public:
  virtual ~NYBURLSession();

  // The session every request of the library uses: the one installed with
  // setSharedSession(), else a libcurl session with the default configuration.
  static std::shared_ptr<NYBURLSession> sharedSession();
  // Installs a replacement shared session; null brings back the default.
  static void setSharedSession(std::shared_ptr<NYBURLSession> session);
  // A new libcurl session with its own worker thread and connections.
  static std::shared_ptr<NYBURLSession> sessionWithConfiguration(
      NYBURLSessionConfiguration configuration);

  std::shared_ptr<NYBURLSessionDataTask> dataTaskWithRequest(
      NYBURLRequest request, NYBURLSessionCompletion completionHandler);

  // The transport: starts the exchange and returns at once; the completion
  // handler is called exactly once, later, on the session's callback queue.
  virtual void startDataTask(NYBURLRequest request, NYBURLSessionCompletion completionHandler) = 0;
};

}  // namespace nyb
