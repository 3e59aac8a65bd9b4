// The libcurl URL session: one multi handle per session, driven by whichever
// thread holds the session's lock; one worker thread waits for the sockets and
// is the thread on which completion handlers run.
#include <curl/curl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <unordered_map>
#include <utility>

#include "NYBBundleInfo.h"
#include "NymbrelCore/NYBURLSession.h"
#include "platform/HTTPText.h"

namespace nyb {

namespace {

std::shared_ptr<NYBError> transportError(NYBURLErrorCode code, std::string_view detail = {}) {
  std::string description;
  switch (code) {
    case NYBURLErrorCancelled:
      description = "cancelled";
      break;
    case NYBURLErrorTimedOut:
      description = "The request timed out.";
      break;
    case NYBURLErrorUnsupportedURL:
      description = "unsupported URL";
      break;
    case NYBURLErrorCannotFindHost:
      description = "A server with the specified hostname could not be found.";
      break;
    case NYBURLErrorCannotConnectToHost:
      description = "Could not connect to the server.";
      break;
    case NYBURLErrorNetworkConnectionLost:
      description = "The network connection was lost.";
      break;
    case NYBURLErrorHTTPTooManyRedirects:
      description = "too many HTTP redirects";
      break;
    case NYBURLErrorBadServerResponse:
      description = "The server's answer could not be read as HTTP.";
      break;
    case NYBURLErrorDataLengthExceedsMaximum:
      description = "The server's answer exceeds the maximum size.";
      break;
    case NYBURLErrorSecureConnectionFailed:
      description =
          "An SSL error has occurred and a secure connection to the server cannot be made.";
      break;
    case NYBURLErrorServerCertificateUntrusted:
      description = "The certificate for this server is invalid.";
      break;
    case NYBURLErrorUnknown:
      description = "An unknown error occurred.";
      break;
  }
  NYBDictionary info;
  info.set(kNYBLocalizedDescriptionKey, std::move(description));
  if (!detail.empty()) info.set("NSDebugDescription", detail);
  return NYBError::errorWithDomain(std::string(kNYBURLErrorDomain), code, std::move(info));
}

NYBURLErrorCode codeForCurlResult(CURLcode result) {
  switch (result) {
    case CURLE_URL_MALFORMAT:
      return NYBURLErrorUnsupportedURL;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return NYBURLErrorCannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return NYBURLErrorCannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
      return NYBURLErrorTimedOut;
    case CURLE_TOO_MANY_REDIRECTS:
      return NYBURLErrorHTTPTooManyRedirects;
    // The scheme was checked before the exchange began, so an unsupported
    // protocol here is an answer that is not HTTP at all.
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
      return NYBURLErrorBadServerResponse;
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return NYBURLErrorNetworkConnectionLost;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return NYBURLErrorServerCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
      return NYBURLErrorSecureConnectionFailed;
    case CURLE_ABORTED_BY_CALLBACK:
      return NYBURLErrorCancelled;
    default:
      return NYBURLErrorUnknown;
  }
}

bool isHTTPScheme(const NYBURL& url) {
  const std::string scheme = url.scheme();
  return http::equalsIgnoringCase(scheme, "http") || http::equalsIgnoringCase(scheme, "https");
}

// Never destroyed: the worker thread may still send a request while the
// process exits.
const std::string& userAgent() {
  static const std::string* agent =
      new std::string(std::string("NymbrelCore/") + bundle::kShortVersionString);
  return *agent;
}

using Clock = std::chrono::steady_clock;

// Easy handles kept for reuse, so that an exchange does not pay for a fresh
// one. Guarded by the session's lock.
struct HandlePool {
  std::vector<CURL*> idle;
  ~HandlePool() {
    for (CURL* easy : idle) curl_easy_cleanup(easy);
  }
  CURL* take() {
    if (idle.empty()) return curl_easy_init();
    CURL* easy = idle.back();
    idle.pop_back();
    return easy;
  }
  void give(CURL* easy) {
    if (idle.size() >= 16) {
      curl_easy_cleanup(easy);
      return;
    }
    curl_easy_reset(easy);
    idle.push_back(easy);
  }
};

// What one exchange may take; see NYBURLSessionConfiguration.
struct Limits {
  Clock::duration idleTimeout{};
  Clock::duration totalTimeout{};
  std::size_t bodyBytes = 0;
  std::size_t headerBytes = 0;
};

// At least a millisecond (zero, negative and NaN included), at most about 31
// years, so that deadlines never overflow the clock.
Clock::duration secondsToDuration(double seconds) {
  const double bounded = seconds > 0.001 ? std::min(seconds, 1e9) : 0.001;
  return std::chrono::milliseconds(std::llround(bounded * 1000.0));
}

// One exchange on its way through the multi handle. Touched only under the
// session's lock.
struct Transfer {
  NYBURLRequest request;
  NYBURLSessionCompletion completion;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  std::vector<std::uint8_t> received;
  NYBHTTPHeaderFields responseHeaders;
  bool statusLineSeen = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  Limits limits;
  // The idle time-out is a span without progress: any byte sent or received
  // starts it again. The total time-out runs from the start whatever moves,
  // so that a server dripping bytes cannot hold the exchange.
  Clock::time_point started;
  Clock::time_point lastProgress;
  curl_off_t bytesMoved = 0;
  std::size_t headerBytesSeen = 0;
  int requestsStarted = 0;
  HandlePool* pool = nullptr;
  // Why a callback stopped the exchange, when one did.
  std::optional<NYBURLErrorCode> stoppedFor;

  Transfer(NYBURLRequest r, NYBURLSessionCompletion c)
      : request(std::move(r)), completion(std::move(c)) {}
  // Destroyed under the session's lock once it holds a handle.
  ~Transfer() {
    if (easy != nullptr) pool->give(easy);
    curl_slist_free_all(headers);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // libcurl hands the body over decoded, so the limit holds against a small
  // compressed answer that inflates without end.
  static size_t onBody(char* data, size_t size, size_t count, void* context) {
    auto* self = static_cast<Transfer*>(context);
    const size_t length = size * count;
    if (length > self->limits.bodyBytes - self->received.size()) {
      self->stoppedFor = NYBURLErrorDataLengthExceedsMaximum;
      return 0;
    }
    self->received.insert(self->received.end(), data, data + length);
    return length;
  }

  // libcurl sends a request again by itself when a kept-alive connection
  // dies before any answer came (and on a few other occasions), but the
  // service may already hold the first copy: a record stored twice. Every
  // request of an exchange passes here just before it is written, so the
  // second one never leaves.
  static int onRequestStart(void* context, char*, char*, int, int) {
    auto* self = static_cast<Transfer*>(context);
    if (++self->requestsStarted == 1) return CURL_PREREQFUNC_OK;
    self->stoppedFor = NYBURLErrorNetworkConnectionLost;
    return CURL_PREREQFUNC_ABORT;
  }

  static int onProgress(void* context, curl_off_t, curl_off_t received, curl_off_t,
                        curl_off_t sent) {
    auto* self = static_cast<Transfer*>(context);
    if (received + sent != self->bytesMoved) {
      self->bytesMoved = received + sent;
      self->lastProgress = Clock::now();
    }
    return 0;
  }

  Clock::time_point deadline() const {
    return std::min(lastProgress + limits.idleTimeout, started + limits.totalTimeout);
  }

  // Header bytes are counted over every answer of the exchange, so that a
  // stream of interim answers cannot grow without end either.
  static size_t onHeader(char* data, size_t size, size_t count, void* context) {
    auto* self = static_cast<Transfer*>(context);
    const std::string_view line(data, size * count);
    self->headerBytesSeen += line.size();
    if (self->headerBytesSeen > self->limits.headerBytes) {
      self->stoppedFor = NYBURLErrorDataLengthExceedsMaximum;
      return 0;
    }
    if (line.substr(0, 5) == "HTTP/") {
      // A new answer (after an interim 1xx or a redirect) starts afresh.
      self->statusLineSeen = true;
      self->responseHeaders.clear();
    } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
      self->responseHeaders.emplace_back(std::string(http::trim(line.substr(0, colon))),
                                         std::string(http::trim(line.substr(colon + 1))));
    }
    return size * count;
  }

  bool appendHeader(const std::string& line) {
    curl_slist* next = curl_slist_append(headers, line.c_str());
    if (next == nullptr) return false;
    headers = next;
    return true;
  }

  // Sets up the easy handle; an error when the request cannot be sent.
  std::shared_ptr<NYBError> configure(const NYBURLSessionConfiguration& configuration,
                                      HandlePool& handles) {
    if (!request.URL || !isHTTPScheme(*request.URL)) {
      return transportError(NYBURLErrorUnsupportedURL);
    }
    pool = &handles;
    easy = handles.take();
    if (easy == nullptr) return transportError(NYBURLErrorUnknown, "curl_easy_init failed");

    limits.idleTimeout = secondsToDuration(
        request.timeoutInterval.value_or(configuration.timeoutIntervalForRequest));
    limits.totalTimeout = secondsToDuration(configuration.timeoutIntervalForResource);
    limits.bodyBytes = configuration.maximumResponseBodyBytes;
    limits.headerBytes = configuration.maximumResponseHeaderBytes;
    started = lastProgress = Clock::now();
    const auto connectTimeout =
        std::chrono::duration_cast<std::chrono::milliseconds>(limits.idleTimeout);

    curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(easy, CURLOPT_URL, request.URL->absoluteString().c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // Redirects are never followed: a request that went elsewhere would carry
    // the token there, and would be a second request of one exchange.
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_PREREQFUNCTION, &Transfer::onRequestStart);
    curl_easy_setopt(easy, CURLOPT_PREREQDATA, this);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
    // Answers are small JSON documents: gzip is worth asking for the large
    // ones and costs little on either side; brotli at a server's default
    // quality, or deflate's quirks, are not.
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, userAgent().c_str());
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);

    const std::string& method = request.HTTPMethod;
    const bool hasBody = request.HTTPBody.has_value();
    if (hasBody || method == "POST") {
      // The body goes out as it is, from the request, which outlives the handle.
      const NYBData* body = hasBody ? &*request.HTTPBody : nullptr;
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                       static_cast<curl_off_t>(body ? body->length() : 0));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS,
                       body && !body->empty() ? reinterpret_cast<const char*>(body->bytes()) : "");
      if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    } else if (method == "GET") {
      curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    } else if (method == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    }

    for (const auto& [name, value] : request.allHTTPHeaderFields) {
      // "Name;" is how libcurl is told to send a field with an empty value.
      if (!appendHeader(value.empty() ? name + ";" : name + ": " + value)) {
        return transportError(NYBURLErrorUnknown, "out of memory");
      }
    }
    // No "Expect: 100-continue" round trip, and no form content type that the
    // request did not ask for.
    bool ok = true;
    if (!request.valueForHTTPHeaderField("Expect")) ok = ok && appendHeader("Expect:");
    if ((hasBody || method == "POST") && !request.valueForHTTPHeaderField("Content-Type")) {
      ok = ok && appendHeader("Content-Type:");
    }
    if (!ok) return transportError(NYBURLErrorUnknown, "out of memory");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    return nullptr;
  }

  std::shared_ptr<const NYBHTTPURLResponse> response() const {
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    char* effective = nullptr;
    curl_easy_getinfo(easy, CURLINFO_EFFECTIVE_URL, &effective);
    std::optional<NYBURL> url = effective ? NYBURL::URLWithString(effective) : std::nullopt;
    if (!url) url = request.URL;
    return std::make_shared<const NYBHTTPURLResponse>(std::move(url), status, responseHeaders);
  }
};

// How an exchange ended, ready to be handed to its completion once the
// session's lock is released.
struct Outcome {
  NYBURLSessionCompletion completion;
  std::optional<NYBData> data;
  std::shared_ptr<const NYBHTTPURLResponse> response;
  std::shared_ptr<NYBError> error;

  void deliver() {
    if (completion) completion(std::move(data), std::move(response), std::move(error));
  }
};

Outcome failed(Transfer& transfer, std::shared_ptr<NYBError> error) {
  return {std::move(transfer.completion), std::nullopt, nullptr, std::move(error)};
}

// Reads the end of an exchange off its handle.
Outcome conclude(Transfer& transfer, CURLcode result) {
  Outcome outcome{std::move(transfer.completion), std::nullopt, nullptr, nullptr};
  // A status line that came before a failure still gives a response.
  if (result == CURLE_OK || transfer.statusLineSeen) outcome.response = transfer.response();
  if (result == CURLE_OK) {
    const std::int64_t status = outcome.response->statusCode();
    if (status < 300 || status > 399 || !outcome.response->valueForHTTPHeaderField("Location")) {
      outcome.data = NYBData(std::move(transfer.received));
      return outcome;
    }
    // The transport follows no redirect, so any one is one too many.
    outcome.error = transportError(NYBURLErrorHTTPTooManyRedirects,
                                   "redirect not followed (status " + std::to_string(status) + ")");
  } else if (transfer.stoppedFor) {
    outcome.error = transportError(*transfer.stoppedFor);
  } else {
    const std::string detail = transfer.errorBuffer[0] != '\0'
                                   ? std::string(transfer.errorBuffer)
                                   : std::string(curl_easy_strerror(result));
    outcome.error = transportError(codeForCurlResult(result), detail);
  }
  return outcome;
}

void deliverAll(std::vector<Outcome>& outcomes) {
  for (Outcome& outcome : outcomes) outcome.deliver();
  outcomes.clear();
}

// The exchanges of one session run on one multi handle. Whoever holds the
// lock drives it: the thread that starts an exchange sets it up and writes its
// request at once, and the worker thread waits (without the lock) in
// epoll_wait on the sockets and one timer, which the multi handle's socket
// callback and each pass keep up to date from either thread, so starting an
// exchange never has to wake the worker. Completions run on the worker only, outside the lock.
class CurlURLSession final : public NYBURLSession {
 public:
  explicit CurlURLSession(NYBURLSessionConfiguration configuration)
      : worker_(std::make_shared<Worker>()) {
    static std::once_flag globalInit;
    std::call_once(globalInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    worker_->configuration = configuration;
    std::lock_guard lock(worker_->mutex);
    if (!worker_->open()) return;  // every exchange then ends as cancelled
    worker_->thread = std::thread(&Worker::run, worker_);
  }

  ~CurlURLSession() override {
    {
      std::lock_guard lock(worker_->mutex);
      worker_->stopping = true;
      worker_->wakeLocked();
    }
    if (!worker_->thread.joinable()) return;
    if (worker_->thread.get_id() == std::this_thread::get_id()) {
      worker_->thread.detach();
    } else {
      worker_->thread.join();
    }
  }

  void startDataTask(NYBURLRequest request, NYBURLSessionCompletion completion) override {
    auto transfer = std::make_unique<Transfer>(std::move(request), std::move(completion));
    {
      std::lock_guard lock(worker_->mutex);
      if (!worker_->stopping && worker_->multi != nullptr) {
        worker_->startLocked(std::move(transfer));
        return;
      }
    }
    failed(*transfer, transportError(NYBURLErrorCancelled)).deliver();
  }

 private:
  struct Worker {
    NYBURLSessionConfiguration configuration;
    // Guards everything below but `thread`.
    std::mutex mutex;
    CURLM* multi = nullptr;
    int epoll = -1;
    int timer = -1;  // timerfd: libcurl's own timeout and the exchanges' deadlines
    int wake = -1;   // eventfd: outcomes to deliver, or stopping
    HandlePool handles;
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> active;
    // Outcomes decided away from the worker, for the worker to deliver.
    std::vector<Outcome> decided;
    std::optional<Clock::time_point> armedFor;
    bool stopping = false;
    std::thread thread;

    bool open() {
      epoll = ::epoll_create1(EPOLL_CLOEXEC);
      timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
      wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
      multi = curl_multi_init();
      if (epoll < 0 || timer < 0 || wake < 0 || multi == nullptr || !watch(timer, EPOLLIN) ||
          !watch(wake, EPOLLIN)) {
        closeLocked();
        return false;
      }
      curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &Worker::onSocket);
      curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
      return true;
    }

    void closeLocked() {
      if (multi != nullptr) curl_multi_cleanup(multi);
      multi = nullptr;
      for (int* fd : {&epoll, &timer, &wake}) {
        if (*fd >= 0) ::close(*fd);
        *fd = -1;
      }
    }

    bool watch(int fd, std::uint32_t events) {
      epoll_event event{};
      event.events = events;
      event.data.fd = fd;
      return ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
    }

    void wakeLocked() const {
      if (wake < 0) return;
      const std::uint64_t one = 1;
      [[maybe_unused]] const ssize_t written = ::write(wake, &one, sizeof one);
    }

    // libcurl's socket callback: keeps the epoll set to what it waits for.
    // A socket it watches carries a non-null pointer (curl_multi_assign).
    static int onSocket(CURL*, curl_socket_t socket, int what, void* context, void* assigned) {
      auto* self = static_cast<Worker*>(context);
      if (what == CURL_POLL_REMOVE) {
        ::epoll_ctl(self->epoll, EPOLL_CTL_DEL, socket, nullptr);
        curl_multi_assign(self->multi, socket, nullptr);
        return 0;
      }
      epoll_event event{};
      event.events = (what & CURL_POLL_IN ? EPOLLIN : 0u) | (what & CURL_POLL_OUT ? EPOLLOUT : 0u);
      event.data.fd = socket;
      if (assigned != nullptr) {
        ::epoll_ctl(self->epoll, EPOLL_CTL_MOD, socket, &event);
      } else if (::epoll_ctl(self->epoll, EPOLL_CTL_ADD, socket, &event) == 0) {
        curl_multi_assign(self->multi, socket, self);
      }
      return 0;
    }

    void startLocked(std::unique_ptr<Transfer> transfer) {
      if (auto error = transfer->configure(configuration, handles)) {
        decided.push_back(failed(*transfer, std::move(error)));
        wakeLocked();
        return;
      }
      if (curl_multi_add_handle(multi, transfer->easy) != CURLM_OK) {
        decided.push_back(
            failed(*transfer, transportError(NYBURLErrorUnknown, "curl_multi_add_handle failed")));
        wakeLocked();
        return;
      }
      CURL* easy = transfer->easy;
      active.emplace(easy, std::move(transfer));
      // Connects, or writes the request on a kept connection, right here.
      int running = 0;
      curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
      const std::size_t before = decided.size();
      collectLocked(decided);
      if (decided.size() != before) wakeLocked();
      armLocked();
    }

    // Takes the exchanges libcurl has finished.
    void collectLocked(std::vector<Outcome>& out) {
      int queued = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        const CURLcode result = message->data.result;
        curl_multi_remove_handle(multi, easy);
        auto found = active.find(easy);
        if (found == active.end()) continue;
        out.push_back(conclude(*found->second, result));
        active.erase(found);
      }
    }

    // Ends the exchanges past their deadline.
    void expireLocked(std::vector<Outcome>& out) {
      const auto now = Clock::now();
      for (auto it = active.begin(); it != active.end();) {
        if (now < it->second->deadline()) {
          ++it;
          continue;
        }
        curl_multi_remove_handle(multi, it->first);
        out.push_back(conclude(*it->second, CURLE_OPERATION_TIMEDOUT));
        it = active.erase(it);
      }
    }

    // Sets the timer to the earliest of libcurl's own timeout (asked for
    // afresh, so that none is ever missed) and the exchanges' deadlines.
    void armLocked() {
      std::optional<Clock::time_point> next;
      long milliseconds = -1;
      curl_multi_timeout(multi, &milliseconds);
      if (milliseconds >= 0) next = Clock::now() + std::chrono::milliseconds(milliseconds);
      for (const auto& [easy, transfer] : active) {
        if (!next || transfer->deadline() < *next) next = transfer->deadline();
      }
      if (next == armedFor) return;
      armedFor = next;
      itimerspec wakeAt{};
      if (next) {
        const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::max(next->time_since_epoch(), Clock::duration(1)));
        wakeAt.it_value.tv_sec = static_cast<time_t>(since.count() / 1'000'000'000);
        wakeAt.it_value.tv_nsec = static_cast<long>(since.count() % 1'000'000'000);
      }
      ::timerfd_settime(timer, TFD_TIMER_ABSTIME, &wakeAt, nullptr);
    }

    static void run(const std::shared_ptr<Worker>& self) { self->loop(); }

    void loop() {
      std::array<epoll_event, 32> events{};
      std::vector<Outcome> due;
      for (;;) {
        const int count = ::epoll_wait(epoll, events.data(), events.size(), -1);
        {
          std::lock_guard lock(mutex);
          due.swap(decided);
          if (stopping) {
            shutDownLocked(due);
          } else {
            handleLocked(std::span(events.data(), count > 0 ? count : 0), due);
          }
        }
        deliverAll(due);
        std::lock_guard lock(mutex);
        if (multi == nullptr) return;
      }
    }

    void handleLocked(std::span<const epoll_event> events, std::vector<Outcome>& due) {
      int running = 0;
      bool timedOut = false;
      for (const epoll_event& event : events) {
        std::uint64_t drained = 0;
        if (event.data.fd == wake) {
          [[maybe_unused]] const ssize_t n = ::read(wake, &drained, sizeof drained);
        } else if (event.data.fd == timer) {
          [[maybe_unused]] const ssize_t n = ::read(timer, &drained, sizeof drained);
          armedFor.reset();
          timedOut = true;
        } else {
          int mask = 0;
          if (event.events & EPOLLIN) mask |= CURL_CSELECT_IN;
          if (event.events & EPOLLOUT) mask |= CURL_CSELECT_OUT;
          if (event.events & (EPOLLERR | EPOLLHUP)) mask |= CURL_CSELECT_ERR;
          curl_multi_socket_action(multi, event.data.fd, mask, &running);
        }
      }
      if (timedOut) curl_multi_socket_action(multi, CURL_SOCKET_TIMEOUT, 0, &running);
      collectLocked(due);
      expireLocked(due);
      armLocked();
    }

    void shutDownLocked(std::vector<Outcome>& due) {
      for (auto& [easy, transfer] : active) {
        curl_multi_remove_handle(multi, easy);
        due.push_back(failed(*transfer, transportError(NYBURLErrorCancelled)));
      }
      active.clear();
      closeLocked();
    }
  };

  std::shared_ptr<Worker> worker_;
};

}  // namespace

std::shared_ptr<NYBURLSession> NYBURLSession::sessionWithConfiguration(
    NYBURLSessionConfiguration configuration) {
  return std::make_shared<CurlURLSession>(configuration);
}

}  // namespace nyb
