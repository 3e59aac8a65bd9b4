#include "NymbrelCore/NYBAPIClient.h"

#include <utility>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDispatchQueue.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBMedia.h"
#include "platform/Log.h"
#include "platform/PercentEncoding.h"
#include "records/RecordTypeList.h"

namespace nyb {

namespace {

constexpr std::string_view kTokenKey = "authentication_token";

// A value as "%@" writes it: a string's own text, "(null)" when absent.
std::string text(const NYBDynamicValue& value) { return value.description(); }

std::string text(const std::optional<std::string>& value) { return value ? *value : "(null)"; }

// The query characters of a URL (RFC 3986) without the full stop.
bool staysUnencoded(unsigned char c) { return c != '.' && isURLQueryCharacter(c); }

std::optional<NYBURL> urlWithPath(const std::string& path) {
  return NYBURL::URLWithString(kNYBRequestBaseURLString.value() + path);
}

NYBRecordType typeOf(const std::shared_ptr<NYBRecord>& record) {
  return record ? record->recordType() : NYBRecordTypeNone;
}

// The token as the request's header value: absent when the user has none.
std::optional<std::string> tokenOf(const std::shared_ptr<NYBUser>& user) {
  if (!user || user->accessToken().isAbsent()) return std::nullopt;
  return user->accessToken().description();
}

// Delivers on the main queue.
void deliver(NYBAPICompletion completion, NYBDynamicValue result, std::shared_ptr<NYBError> error) {
  if (!completion) return;
  NYBDispatchQueue::main().async([completion = std::move(completion), result = std::move(result),
                                  error = std::move(error)] { completion(result, error); });
}

// Puts the record's JSON document into `document`; false, after telling the
// completion at once, when there can be none: a value its transformer cannot
// write raises, and a value JSON cannot hold (NaN) would otherwise leave the
// request without a body. Either way the record can never be sent, so it is
// refused before anything goes out, as a failed check is.
bool encode(const NYBRecord& record, NYBDynamicValue& document,
            const NYBAPICompletion& completion) {
  std::string detail;
  try {
    document = NYBDynamicValue(record.JSONObject());
    if (NYBJSONSerialization::isValidJSONObject(document)) return true;
    for (const auto& [key, value] : *document.dictionary()) {
      if (!NYBJSONSerialization::isValidJSONObject(NYBArray{value})) {
        detail = "the value of " + key.description() + " is not a JSON value";
        break;
      }
    }
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    detail = failure.what();
  }
  document = NYBDynamicValue();
  if (completion) {
    completion(NYBDynamicValue(), NYBError::errorWithDescription(
                                      std::string(kNYBAPIErrorDomain), NYBAPIErrorUnencodableRecord,
                                      "Record cannot be encoded: " + detail));
  }
  return false;
}

}  // namespace

// MARK: - Class-level operations

const NYBAPIClientClass& NYBAPIClient::staticClass() {
  static const NYBAPIClientClass clientClass("NYBAPIClient", &NYBObject::staticClass());
  return clientClass;
}

std::shared_ptr<NYBError> NYBAPIClientClass::validateRecord(
    const std::shared_ptr<NYBRecord>& record) const {
  if (!record) return APIErrorForErrorCode(NYBAPIErrorMissingRecord);
  if (record->recordType() == NYBRecordTypeNone) {
    return APIErrorForErrorCode(NYBAPIErrorInvalidRecordType);
  }
  return nullptr;
}

std::shared_ptr<NYBError> NYBAPIClientClass::validateRecordForUpdating(
    const std::shared_ptr<NYBRecord>& record) const {
  std::shared_ptr<NYBError> error = validateRecord(record);
  if (!record || record->recordID().isAbsent()) {
    error = APIErrorForErrorCode(NYBAPIErrorMissingRecordID);
  }
  return error;
}

std::shared_ptr<NYBError> NYBAPIClientClass::validateRecordForUpsert(
    const std::shared_ptr<NYBRecord>& record) const {
  std::shared_ptr<NYBError> error = validateRecord(record);
  if (!record || record->activityID().isAbsent()) {
    error = APIErrorForErrorCode(NYBAPIErrorMissingActivityID);
  }
  return error;
}

std::shared_ptr<NYBError> NYBAPIClientClass::validateMultipleRecords(
    const NYBRecordList& records) const {
  if (records.empty()) return APIErrorForErrorCode(NYBAPIErrorMissingRecord);
  const NYBRecordType firstType = typeOf(records.front());
  for (const auto& record : records) {
    std::shared_ptr<NYBError> error = validateRecord(record);
    if (typeOf(record) != firstType) error = APIErrorForErrorCode(NYBAPIErrorMismatchedRecordTypes);
    if (error) return error;
  }
  return nullptr;
}

std::optional<NYBURL> NYBAPIClientClass::urlForRecordType(
    NYBRecordType recordType, const std::shared_ptr<NYBUser>& user) const {
  if (!user || user->organizationID().isAbsent() || user->nymbrelUserID().isAbsent()) {
    return std::nullopt;
  }
  return urlWithPath("/organizations/" + text(user->organizationID()) + "/users/" +
                     text(user->nymbrelUserID()) + "/" + text(JSONRootForRecordType(recordType)) +
                     ".json");
}

std::optional<NYBURL> NYBAPIClientClass::urlForRecordTypeRecordID(
    NYBRecordType recordType, const NYBDynamicValue& recordID,
    const std::shared_ptr<NYBUser>& user) const {
  if (recordID.isAbsent() || !user) return std::nullopt;
  return urlWithPath("/organizations/" + text(user->organizationID()) + "/users/" +
                     text(user->nymbrelUserID()) + "/" + text(JSONRootForRecordType(recordType)) +
                     "/" + text(recordID) + ".json");
}

std::optional<NYBURL> NYBAPIClientClass::urlForRecordTypeActivityID(
    NYBRecordType recordType, const NYBDynamicValue& activityID,
    const std::shared_ptr<NYBUser>& user) const {
  if (activityID.isAbsent() || !user) return std::nullopt;
  return urlWithPath("/organizations/" + text(user->organizationID()) + "/users/" +
                     text(user->nymbrelUserID()) + "/" + text(JSONRootForRecordType(recordType)) +
                     "/activity_id/" + percentEncode(text(activityID), staysUnencoded));
}

std::optional<NYBURL> NYBAPIClientClass::urlForImageUploadRecord(
    const std::shared_ptr<NYBRecord>& record, const std::shared_ptr<NYBUser>& user) const {
  if (!record || record->recordID().isAbsent() || !user || user->organizationID().isAbsent() ||
      user->nymbrelUserID().isAbsent() || user->accessToken().isAbsent()) {
    return std::nullopt;
  }
  return urlWithPath(
      "/organizations/" + text(user->organizationID()) + "/users/" + text(user->nymbrelUserID()) +
      "/" + text(JSONRootForRecordType(record->recordType())) + "/" + text(record->recordID()) +
      "/media?authentication_token=" + text(user->accessToken()));
}

std::optional<std::string> NYBAPIClientClass::JSONRootForRecordType(
    NYBRecordType recordType) const {
  if (recordType == NYBRecordTypeNone) return "";
  const records::RecordTypeDescription* description = records::describeRecordType(recordType);
  if (description == nullptr) return std::nullopt;
  return std::string(description->root);
}

NYBDynamicValue NYBAPIClientClass::transformJSONObject(const NYBDynamicValue& JSONObject,
                                                       const NYBModelClass* modelClass) const {
  if (const NYBArray* array = JSONObject.array()) {
    NYBArray models;
    models.reserve(array->size());
    for (const NYBDynamicValue& element : *array) {
      if (!element.isDictionary() || modelClass == nullptr) continue;
      if (auto model = modelClass->modelFromJSONObject(element)) models.append(std::move(model));
    }
    return models;
  }
  if (JSONObject.isDictionary()) {
    if (modelClass == nullptr) return {};
    return modelClass->modelFromJSONObject(JSONObject);
  }
  log("Invalid JSON Object: {}", shortenedForLog(JSONObject.description()));
  return {};
}

std::optional<std::string> NYBAPIClientClass::localizedDescriptionForErrorCode(
    NYBAPIErrorCode code) const {
  switch (code) {
    case NYBAPIErrorInvalidRecords:
      return "Invalid records";
    case NYBAPIErrorInvalidRecordType:
      return "Invalid record type";
    case NYBAPIErrorMissingRecordID:
      return "Missing record ID";
    case NYBAPIErrorMissingActivityID:
      return "Missing activity ID";
    case NYBAPIErrorMissingRecord:
      return "Missing record";
    case NYBAPIErrorMismatchedRecordTypes:
      return "Mismatched record types";
    case NYBAPIErrorUnencodableRecord:
      return "Record cannot be encoded";
  }
  return std::nullopt;
}

std::shared_ptr<NYBError> NYBAPIClientClass::APIErrorForErrorCode(NYBAPIErrorCode code) const {
  NYBDictionary info;
  if (auto description = localizedDescriptionForErrorCode(code)) {
    info.set(kNYBLocalizedDescriptionKey, std::move(*description));
  }
  return NYBError::errorWithDomain(std::string(kNYBAPIErrorDomain), code, std::move(info));
}

std::shared_ptr<NYBError> NYBAPIClientClass::APIErrorWithErrorRecords(
    const std::vector<std::shared_ptr<NYBServerResponse>>& errorRecords) const {
  std::string list;
  NYBArray records;
  for (const auto& response : errorRecords) {
    if (&response != &errorRecords.front()) list += ", ";  // an empty ID still takes its place
    list += response ? text(response->activityID()) : "(null)";
    if (response) records.append(response);
  }
  NYBDictionary info;
  info.set(kNYBLocalizedDescriptionKey, "Invalid records: " + list);
  info.set("errorRecords", std::move(records));
  return NYBError::errorWithDomain(std::string(kNYBAPIErrorDomain), NYBAPIErrorInvalidRecords,
                                   std::move(info));
}

// MARK: - The client

NYBAPIClient::NYBAPIClient(std::shared_ptr<NYBUser> user) : user_(std::move(user)) {
  if (!user_) throw NYBException("Missing parameter exception", "user is required");
}

NYBAPIClient::NYBAPIClient() : NYBAPIClient(nullptr) {}

std::shared_ptr<NYBUser> NYBAPIClient::user() const {
  std::lock_guard lock(userMutex_);
  return user_;
}

void NYBAPIClient::setUser(std::shared_ptr<NYBUser> user) {
  std::lock_guard lock(userMutex_);
  user_ = std::move(user);
}

std::shared_ptr<NYBRequest> NYBAPIClient::makeRequest(NYBHTTPMethod method,
                                                      std::optional<NYBURL> url,
                                                      const std::shared_ptr<NYBUser>& user,
                                                      NYBDictionary body) const {
  auto request = std::make_shared<NYBRequest>();
  request->setHTTPMethod(method);
  request->setAuthToken(tokenOf(user));
  request->setURL(std::move(url));
  // An absent token leaves its entry out: a dictionary cannot hold absent.
  if (user) body.set(kTokenKey, user->accessToken());
  request->addParameters(body);
  return request;
}

void NYBAPIClient::postRecord(const std::shared_ptr<NYBRecord>& record,
                              NYBAPICompletion completion) {
  const auto& cls = classObject();
  if (auto error = cls.validateRecord(record); error || !record) {
    if (completion) completion(NYBDynamicValue(), error);
    return;
  }
  NYBDynamicValue document;
  if (!encode(*record, document, completion)) return;
  const auto user = this->user();
  const auto root = cls.JSONRootForRecordType(record->recordType());
  NYBDictionary body;
  if (root) body.set(*root, std::move(document));
  sendRequest(makeRequest(NYBHTTPMethodPOST, cls.urlForRecordType(record->recordType(), user), user,
                          std::move(body)),
              root, &record->classObject(), std::move(completion));
}

void NYBAPIClient::postMultipleRecords(const NYBRecordList& records, NYBAPICompletion completion) {
  const auto& cls = classObject();
  if (auto error = cls.validateMultipleRecords(records)) {
    if (completion) completion(NYBDynamicValue(), error);
    return;
  }
  const auto& first = records.front();
  const auto user = this->user();
  const auto root = cls.JSONRootForRecordType(first->recordType());
  NYBArray documents;
  documents.reserve(records.size());
  for (const auto& record : records) {
    NYBDynamicValue document;
    if (!encode(*record, document, completion)) return;
    documents.append(std::move(document));
  }
  NYBDictionary body;
  if (root) body.set(*root, std::move(documents));
  sendRequest(makeRequest(NYBHTTPMethodPOST, cls.urlForRecordType(first->recordType(), user), user,
                          std::move(body)),
              root, &first->classObject(), std::move(completion));
}

void NYBAPIClient::updateRecord(const std::shared_ptr<NYBRecord>& record,
                                NYBAPICompletion completion) {
  const auto& cls = classObject();
  if (auto error = cls.validateRecordForUpdating(record); error || !record) {
    if (completion) completion(NYBDynamicValue(), error);
    return;
  }
  const auto user = this->user();
  putRecord(record, cls.urlForRecordTypeRecordID(record->recordType(), record->recordID(), user),
            user, std::move(completion));
}

void NYBAPIClient::putRecord(const std::shared_ptr<NYBRecord>& record, std::optional<NYBURL> url,
                             const std::shared_ptr<NYBUser>& user, NYBAPICompletion completion) {
  NYBDynamicValue document;
  if (!encode(*record, document, completion)) return;
  const auto root = classObject().JSONRootForRecordType(record->recordType());
  NYBDictionary body;
  if (root) body.set(*root, std::move(document));
  sendRequest(makeRequest(NYBHTTPMethodPUT, std::move(url), user, std::move(body)), root,
              &record->classObject(), std::move(completion));
}

void NYBAPIClient::deleteRecord(const std::shared_ptr<NYBRecord>& record,
                                NYBAPICompletion completion) {
  const auto& cls = classObject();
  // Refused only when there is someone to tell.
  if (auto error = cls.validateRecordForUpdating(record); completion && error) {
    completion(NYBDynamicValue(), error);
    return;
  }
  const auto user = this->user();
  const NYBDynamicValue recordID = record ? record->recordID() : NYBDynamicValue();
  sendRequest(makeRequest(NYBHTTPMethodDELETE,
                          cls.urlForRecordTypeRecordID(typeOf(record), recordID, user), user, {}),
              std::nullopt, &NYBServerResponse::staticClass(), std::move(completion));
}

void NYBAPIClient::uploadImage(std::shared_ptr<const NYBImage> image,
                               const std::shared_ptr<NYBRecord>& record,
                               NYBAPICompletion completion) {
  const auto& cls = classObject();
  if (auto error = cls.validateRecordForUpdating(record)) {
    if (completion) completion(NYBDynamicValue(), error);
    return;
  }
  const auto user = this->user();
  auto request =
      makeRequest(NYBHTTPMethodPOST, cls.urlForImageUploadRecord(record, user), user, {});
  request->setImage(std::move(image));
  sendRequest(
      request, std::string("media"), &NYBMedia::staticClass(),
      [completion = std::move(completion)](NYBDynamicValue media, std::shared_ptr<NYBError> error) {
        if (completion) completion(std::move(media), std::move(error));
      });
}

void NYBAPIClient::upsertRecord(const std::shared_ptr<NYBRecord>& record,
                                NYBAPICompletion completion) {
  const auto& cls = classObject();
  if (auto error = cls.validateRecordForUpsert(record); error || !record) {
    if (completion) completion(NYBDynamicValue(), error);
    return;
  }
  const auto user = this->user();
  putRecord(record,
            cls.urlForRecordTypeActivityID(record->recordType(), record->activityID(), user), user,
            std::move(completion));
}

void NYBAPIClient::sendRequest(const std::shared_ptr<NYBRequest>& request,
                               std::optional<std::string> JSONRoot,
                               const NYBModelClass* resultClass, NYBAPICompletion completion) {
  if (!request) return;
  const NYBAPIClientClass* cls = &classObject();
  request->sendWithCompletion(
      [cls, root = std::move(JSONRoot), resultClass, completion = std::move(completion)](
          NYBDynamicValue json, std::shared_ptr<const NYBHTTPURLResponse>,
          std::shared_ptr<NYBError> error) mutable {
        // Called once: the completion moves on to the main queue.
        if (json.isAbsent()) {
          deliver(std::move(completion), NYBDynamicValue(), std::move(error));
          return;
        }
        const NYBDictionary* answer = json.dictionary();
        if (answer && !error) {
          const NYBArray* errors = (*answer)["errors"].array();
          if (errors && !errors->empty()) {
            std::vector<std::shared_ptr<NYBServerResponse>> records;
            const NYBDynamicValue models =
                cls->transformJSONObject((*answer)["errors"], &NYBServerResponse::staticClass());
            if (const NYBArray* list = models.array()) {
              for (const auto& model : *list) {
                records.push_back(model.objectAs<NYBServerResponse>());
              }
            }
            error = cls->APIErrorWithErrorRecords(records);
          }
        }
        NYBDynamicValue object = json;
        if (root && answer) {
          if (const NYBDynamicValue* rooted = answer->find(*root)) object = *rooted;
        }
        NYBDynamicValue result =
            resultClass ? cls->transformJSONObject(object, resultClass) : std::move(object);
        deliver(std::move(completion), std::move(result), std::move(error));
      });
}

}  // namespace nyb
