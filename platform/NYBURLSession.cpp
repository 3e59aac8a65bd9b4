#include "NymbrelCore/NYBURLSession.h"

#include <mutex>
#include <utility>

#include "platform/HTTPText.h"

namespace nyb {

// MARK: - Requests and responses

void NYBURLRequest::setValueForHTTPHeaderField(std::string value, std::string_view field) {
  for (auto& [name, existing] : allHTTPHeaderFields) {
    if (http::equalsIgnoringCase(name, field)) {
      existing = std::move(value);
      return;
    }
  }
  allHTTPHeaderFields.emplace_back(std::string(field), std::move(value));
}

const std::string* NYBURLRequest::valueForHTTPHeaderField(std::string_view field) const {
  return http::findField(allHTTPHeaderFields, field);
}

NYBHTTPURLResponse::NYBHTTPURLResponse(std::optional<NYBURL> url, std::int64_t statusCode,
                                       NYBHTTPHeaderFields headerFields)
    : url_(std::move(url)), statusCode_(statusCode), headerFields_(std::move(headerFields)) {}

const std::string* NYBHTTPURLResponse::valueForHTTPHeaderField(std::string_view field) const {
  return http::findField(headerFields_, field);
}

std::string NYBHTTPURLResponse::localizedStringForStatusCode(std::int64_t statusCode) {
  switch (statusCode) {
    case 100:
      return "continue";
    case 101:
      return "switching protocols";
    case 200:
      return "no error";
    case 201:
      return "created";
    case 202:
      return "accepted";
    case 203:
      return "non-authoritative information";
    case 204:
      return "no content";
    case 205:
      return "reset content";
    case 206:
      return "partial content";
    case 300:
      return "multiple choices";
    case 301:
      return "moved permanently";
    case 302:
      return "found";
    case 303:
      return "see other";
    case 304:
      return "not modified";
    case 305:
      return "needs proxy";
    case 307:
      return "redirected";
    case 400:
      return "bad request";
    case 401:
      return "unauthorized";
    case 402:
      return "payment required";
    case 403:
      return "forbidden";
    case 404:
      return "not found";
    case 405:
      return "method not allowed";
    case 406:
      return "unacceptable";
    case 407:
      return "proxy authentication required";
    case 408:
      return "request timed out";
    case 409:
      return "conflict";
    case 410:
      return "no longer exists";
    case 411:
      return "length required";
    case 412:
      return "precondition failed";
    case 413:
      return "request too large";
    case 414:
      return "requested URL too long";
    case 415:
      return "unsupported media type";
    case 416:
      return "requested range not satisfiable";
    case 417:
      return "expectation failed";
    case 500:
      return "internal server error";
    case 501:
      return "unimplemented";
    case 502:
      return "bad gateway";
    case 503:
      return "service unavailable";
    case 504:
      return "gateway timed out";
    case 505:
      return "unsupported version";
    default:
      break;
  }
  if (statusCode >= 100 && statusCode < 200) return "informational";
  if (statusCode >= 200 && statusCode < 300) return "success";
  if (statusCode >= 300 && statusCode < 400) return "redirected";
  if (statusCode >= 400 && statusCode < 500) return "client error";
  return "server error";
}

// MARK: - Tasks and the shared session

NYBURLSessionDataTask::NYBURLSessionDataTask(std::shared_ptr<NYBURLSession> session,
                                             NYBURLRequest request,
                                             NYBURLSessionCompletion completionHandler)
    : session_(std::move(session)),
      request_(std::move(request)),
      completionHandler_(std::move(completionHandler)) {}

void NYBURLSessionDataTask::resume() {
  if (std::exchange(resumed_, true) || !session_) return;
  session_->startDataTask(request_, std::move(completionHandler_));
}

NYBURLSession::~NYBURLSession() = default;

std::shared_ptr<NYBURLSessionDataTask> NYBURLSession::dataTaskWithRequest(
    NYBURLRequest request, NYBURLSessionCompletion completionHandler) {
  return std::make_shared<NYBURLSessionDataTask>(shared_from_this(), std::move(request),
                                                 std::move(completionHandler));
}

namespace {

struct SharedSessionSlot {
  std::mutex mutex;
  std::shared_ptr<NYBURLSession> installed;
  std::shared_ptr<NYBURLSession> fallback;
};

SharedSessionSlot& sharedSlot() {
  // Never destroyed: its worker thread may still run while the process exits.
  static auto* const slot = new SharedSessionSlot;
  return *slot;
}

}  // namespace

std::shared_ptr<NYBURLSession> NYBURLSession::sharedSession() {
  SharedSessionSlot& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  if (slot.installed) return slot.installed;
  if (!slot.fallback) slot.fallback = sessionWithConfiguration({});
  return slot.fallback;
}

void NYBURLSession::setSharedSession(std::shared_ptr<NYBURLSession> session) {
  SharedSessionSlot& slot = sharedSlot();
  std::shared_ptr<NYBURLSession> previous;
  {
    std::lock_guard lock(slot.mutex);
    previous = std::exchange(slot.installed, std::move(session));
  }
  // previous is released here, outside the lock: a libcurl session joins its thread.
}

}  // namespace nyb
