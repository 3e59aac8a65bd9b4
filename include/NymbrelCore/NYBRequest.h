// NYBRequest: one HTTP exchange with the service.
//
// The caller fills in the URL, the method, the token, the parameters (the
// JSON body of a POST, PUT or DELETE, the query of a GET) and, for an upload,
// an image, then calls sendWithCompletion(). Every request carries the
// "Accept", version and token headers; a body is either compact JSON or, with
// an image, a multipart body holding the image as PNG. The answer is sorted by
// status: 400 and above becomes an error of kNYBHTTPErrorDomain, anything
// below is parsed as JSON. Nothing here retries, caches or times out by
// itself; one call sends exactly one request through the shared URL session,
// which never repeats it nor follows a redirect. The log lines show at most
// the first KiB of an answer's body.
//
// A request is configured by one thread at a time. sendWithCompletion() may
// be called from any thread and returns at once; the completion runs later,
// exactly once, on the URL session's callback queue. What is sent is fixed
// when it is called: later changes to the request do not reach it.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBError.h"
#include "NymbrelCore/NYBImage.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBURL.h"
#include "NymbrelCore/NYBURLSession.h"

namespace nyb {

// The method, a machine word; a fresh request holds 0, a POST.
enum NYBHTTPMethod : std::uint64_t {
  NYBHTTPMethodPOST = 0,
  NYBHTTPMethodGET = 1,
  NYBHTTPMethodPUT = 2,
  NYBHTTPMethodDELETE = 3,
};

// The parsed JSON answer (a dictionary or an array, absent when there is
// none), the HTTP response (absent when none came) and the error.
using NYBRequestCompletion = std::function<void(NYBDynamicValue JSONObject,
                                                std::shared_ptr<const NYBHTTPURLResponse> response,
                                                std::shared_ptr<NYBError> error)>;

// The class object of NYBRequest, carrying its class-level operations.
class NYB_EXPORT NYBRequestClass : public NYBClass {
 public:
  using NYBClass::NYBClass;

  // "POST", "GET", "PUT", "DELETE" for 0 to 3; absent for any other value.
  virtual std::optional<std::string> HTTPMethodStringForMethod(NYBHTTPMethod method) const;
  // The URL's text followed by "?" and "key=value" pairs joined with "&", in
  // the dictionary's order, each written as its plain description with no
  // percent-encoding; absent when the result does not parse as a URL.
  virtual std::optional<NYBURL> URLWithGETParameters(const NYBURL& url,
                                                     const NYBDictionary& parameters) const;
  // Domain "NYBHTTPErrorDomain", the status as code, and the description
  // "<status> <reason phrase>", e.g. "404 not found".
  virtual std::shared_ptr<NYBError> HTTPErrorWithStatusCode(std::int64_t statusCode) const;
};

class NYB_EXPORT NYBRequest : public NYBObject {
  NYB_DECLARE_CLASS(NYBRequestClass)
 public:
  // The multipart boundary: fifteen hyphens, then "9a87987G98797".
  static constexpr std::string_view kBoundary = "---------------9a87987G98797";

  NYBRequest() = default;

  const std::optional<NYBURL>& URL() const { return url_; }
  void setURL(std::optional<NYBURL> url) { url_ = std::move(url); }
  // String keys; a JSON body, or a GET's query.
  const std::optional<NYBDictionary>& parameters() const { return parameters_; }
  void setParameters(std::optional<NYBDictionary> parameters) {
    parameters_ = std::move(parameters);
  }
  NYBHTTPMethod HTTPMethod() const { return method_; }
  void setHTTPMethod(NYBHTTPMethod method) { method_ = method; }
  const std::shared_ptr<const NYBImage>& image() const { return image_; }
  void setImage(std::shared_ptr<const NYBImage> image) { image_ = std::move(image); }
  const std::optional<std::string>& authToken() const { return authToken_; }
  void setAuthToken(std::optional<std::string> authToken) { authToken_ = std::move(authToken); }

  // Merges the entries into parameters (made empty first when there are
  // none); the argument's value wins on a shared key.
  void addParameters(const NYBDictionary& parameters);

  // The multipart body: the image's PNG part (only when the image encodes),
  // then the closing boundary line.
  NYBData constructBody() const;

  // Builds the URL request and starts it; the completion, which may be empty,
  // runs on the URL session's callback queue.
  void sendWithCompletion(NYBRequestCompletion completion) const;

  // Class-level conveniences, forwarding to NYBRequest's class object.
  static std::optional<std::string> HTTPMethodStringForMethod(NYBHTTPMethod method) {
    return staticClass().HTTPMethodStringForMethod(method);
  }
  static std::optional<NYBURL> URLWithGETParameters(const NYBURL& url,
                                                    const NYBDictionary& parameters) {
    return staticClass().URLWithGETParameters(url, parameters);
  }
  static std::shared_ptr<NYBError> HTTPErrorWithStatusCode(std::int64_t statusCode) {
    return staticClass().HTTPErrorWithStatusCode(statusCode);
  }

  // The URL request that sendWithCompletion() sends: URL, method, headers and
  // body.
  NYBURLRequest URLRequest() const;

 private:
  std::optional<NYBURL> url_;
  std::optional<NYBDictionary> parameters_;
  NYBHTTPMethod method_ = NYBHTTPMethodPOST;
  std::shared_ptr<const NYBImage> image_;
  std::optional<std::string> authToken_;
};

}  // namespace nyb
