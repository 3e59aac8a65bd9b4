#include "NymbrelCore/NYBRequest.h"

#include <string_view>
#include <utility>

#include "NymbrelCore/NYBJSONSerialization.h"
#include "platform/Log.h"

namespace nyb {

namespace {

// Whether the bytes are well-formed UTF-8 (no overlong forms, surrogates or
// values above U+10FFFF).
bool isValidUTF8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      length = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 2;
      if (c == 0xE0) low = 0xA0;
      if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 3;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (i + length >= text.size()) return false;
    for (std::size_t k = 1; k <= length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      const unsigned char min = k == 1 ? low : 0x80, max = k == 1 ? high : 0xBF;
      if (next < min || next > max) return false;
    }
    i += length + 1;
  }
  return true;
}

// The body as text for a log line: "(null)" when there is no body or it is
// not UTF-8, as a missing string prints; shortened when long.
std::string bodyText(const std::optional<NYBData>& data) {
  if (!data || !isValidUTF8(data->view())) return "(null)";
  return shortenedForLog(data->view());
}

std::string descriptionOrNull(const std::shared_ptr<NYBError>& error) {
  return error ? error->localizedDescription() : "(null)";
}

void appendText(std::vector<std::uint8_t>& bytes, std::string_view text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

// What becomes of one answer; runs on the URL session's callback queue.
void handleAnswer(const NYBRequestCompletion& completion, const std::optional<NYBData>& data,
                  const std::shared_ptr<const NYBHTTPURLResponse>& response,
                  const std::shared_ptr<NYBError>& transportError) {
  const std::int64_t status = response ? response->statusCode() : 0;
  if (status >= 400) {
    std::shared_ptr<NYBError> error =
        transportError ? transportError : NYBRequest::HTTPErrorWithStatusCode(status);
    log("NYBRequest: Invalid status code: {}\nResponse: {}", error->localizedDescription(),
        bodyText(data));
    if (completion) completion(NYBDynamicValue(), response, error);
    return;
  }
  if (data && !data->empty()) {
    std::shared_ptr<NYBError> parseError;
    NYBDynamicValue object = NYBJSONSerialization::JSONObjectWithData(data->view(), &parseError);
    if (object.isPresent()) {
      if (completion) completion(std::move(object), response, transportError);
      return;
    }
    log("NYBRequest: Error deserializing JSON: {}\nResponse: {}", descriptionOrNull(parseError),
        bodyText(data));
    if (completion)
      completion(NYBDynamicValue(), response, transportError ? transportError : parseError);
    return;
  }
  log("NYBRequest: No data returned: {}", descriptionOrNull(transportError));
  if (completion) completion(NYBDynamicValue(), response, transportError);
}

}  // namespace

// MARK: - Class-level operations

const NYBRequestClass& NYBRequest::staticClass() {
  static const NYBRequestClass requestClass("NYBRequest", &NYBObject::staticClass());
  return requestClass;
}

std::optional<std::string> NYBRequestClass::HTTPMethodStringForMethod(NYBHTTPMethod method) const {
  switch (method) {
    case NYBHTTPMethodPOST:
      return "POST";
    case NYBHTTPMethodGET:
      return "GET";
    case NYBHTTPMethodPUT:
      return "PUT";
    case NYBHTTPMethodDELETE:
      return "DELETE";
  }
  return std::nullopt;
}

std::optional<NYBURL> NYBRequestClass::URLWithGETParameters(const NYBURL& url,
                                                            const NYBDictionary& parameters) const {
  std::string query;
  for (const auto& [key, value] : parameters) {
    if (!query.empty()) query += '&';
    query += key.description();
    query += '=';
    query += value.description();
  }
  return NYBURL::URLWithString(url.absoluteString() + "?" + query);
}

std::shared_ptr<NYBError> NYBRequestClass::HTTPErrorWithStatusCode(std::int64_t statusCode) const {
  return NYBError::errorWithDescription(
      std::string(kNYBHTTPErrorDomain), statusCode,
      std::to_string(statusCode) + " " +
          NYBHTTPURLResponse::localizedStringForStatusCode(statusCode));
}

// MARK: - Building and sending

void NYBRequest::addParameters(const NYBDictionary& parameters) {
  NYBDictionary merged = parameters_.value_or(NYBDictionary());
  for (const auto& [key, value] : parameters) merged.set(key, value);
  parameters_ = std::move(merged);
}

NYBData NYBRequest::constructBody() const {
  std::vector<std::uint8_t> body;
  if (std::optional<NYBData> png = NYBImagePNGRepresentation(image_)) {
    body.reserve(png->length() + 256);
    appendText(body, "--");
    appendText(body, kBoundary);
    appendText(body, "\r\n");
    appendText(body, "Content-Disposition: form-data; name=\"media\"; filename=\"media.png\"\r\n");
    appendText(body, "Content-Type: application/octet-stream\r\n\r\n");
    body.insert(body.end(), png->bytes(), png->bytes() + png->length());
    appendText(body, "\r\n");
  }
  appendText(body, "--");
  appendText(body, kBoundary);
  appendText(body, "--\r\n");
  return NYBData(std::move(body));
}

NYBURLRequest NYBRequest::URLRequest() const {
  const auto& requestClass = classObject();
  NYBURLRequest request;
  if (parameters_ && method_ == NYBHTTPMethodGET) {
    request.URL = url_ ? requestClass.URLWithGETParameters(*url_, *parameters_) : std::nullopt;
  } else {
    request.URL = url_;
  }
  if (auto method = requestClass.HTTPMethodStringForMethod(method_)) request.HTTPMethod = *method;

  request.setValueForHTTPHeaderField("application/json", "Accept");
  request.setValueForHTTPHeaderField(std::string(kNYBNymbrelVersionValue),
                                     kNYBNymbrelVersionHeader);
  if (authToken_) request.setValueForHTTPHeaderField(*authToken_, kNYBNymbrelAuthV2);

  if (method_ == NYBHTTPMethodPOST || method_ == NYBHTTPMethodPUT ||
      method_ == NYBHTTPMethodDELETE) {
    if (image_) {
      request.setValueForHTTPHeaderField("multipart/form-data; boundary=" + std::string(kBoundary),
                                         "Content-Type");
      request.HTTPBody = constructBody();
    } else if (parameters_) {
      request.setValueForHTTPHeaderField("application/json", "Content-Type");
      std::shared_ptr<NYBError> error;
      if (auto json =
              NYBJSONSerialization::dataWithJSONObject(NYBDynamicValue(*parameters_), &error)) {
        request.HTTPBody = NYBData(*json);
      } else {
        log("Error serializing data:{}\n{}", parameters_->description(), descriptionOrNull(error));
      }
    }
  }
  return request;
}

void NYBRequest::sendWithCompletion(NYBRequestCompletion completion) const {
  auto session = NYBURLSession::sharedSession();
  session
      ->dataTaskWithRequest(
          URLRequest(),
          [completion = std::move(completion)](
              std::optional<NYBData> data, std::shared_ptr<const NYBHTTPURLResponse> response,
              std::shared_ptr<NYBError> error) { handleAnswer(completion, data, response, error); })
      ->resume();
}

}  // namespace nyb
