// NYBAPIClient: the client of the service's REST interface for one user.
//
// Six record operations (post, post several, update, delete, upload an image
// for a record, upsert by activity ID) each check the record, build an
// NYBRequest with its method, URL, token and body, send it, and read the
// answer back into models: the record's own class, NYBMedia or
// NYBServerResponse. A non-empty "errors" array in an answer becomes an error
// of kNYBAPIErrorDomain (code NYBAPIErrorInvalidRecords) that is delivered
// beside whatever result the answer also holds.
//
// Threads: operations may be called from any thread and do not block. A
// record that fails the checks, or whose JSON document cannot be made
// (NYBAPIErrorUnencodableRecord, naming the key), is reported synchronously,
// before the call returns, on the calling thread, and nothing is sent; every
// other outcome is delivered on the main queue (NYBDispatchQueue::main()),
// exactly once. No record operation raises. A completion may be
// empty. The client holds its user, which may be replaced at any time;
// each operation reads it once while building its request.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBError.h"
#include "NymbrelCore/NYBImage.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBRecord.h"
#include "NymbrelCore/NYBRequest.h"
#include "NymbrelCore/NYBServerResponse.h"
#include "NymbrelCore/NYBURL.h"
#include "NymbrelCore/NYBUser.h"

namespace nyb {

// The codes of kNYBAPIErrorDomain.
enum NYBAPIErrorCode : std::int64_t {
  NYBAPIErrorInvalidRecords = 0,
  NYBAPIErrorInvalidRecordType = 1,
  NYBAPIErrorMissingRecordID = 2,
  NYBAPIErrorMissingActivityID = 3,
  NYBAPIErrorMissingRecord = 4,
  NYBAPIErrorMismatchedRecordTypes = 5,
  // The record's JSON document cannot be made (a value its transformer cannot
  // write, such as a date field holding text or a date that is not a number,
  // or a value JSON cannot hold, such as NaN). The description names the key.
  NYBAPIErrorUnencodableRecord = 6,
};

// The result (a model, an array of models, or absent) and the error (absent
// on success); both may be present.
using NYBAPICompletion =
    std::function<void(NYBDynamicValue result, std::shared_ptr<NYBError> error)>;

using NYBRecordList = std::vector<std::shared_ptr<NYBRecord>>;

// The class object of NYBAPIClient, carrying its class-level operations.
class NYB_EXPORT NYBAPIClientClass : public NYBClass {
 public:
  using NYBClass::NYBClass;

  // No record: NYBAPIErrorMissingRecord; a record of type none:
  // NYBAPIErrorInvalidRecordType; otherwise null.
  virtual std::shared_ptr<NYBError> validateRecord(const std::shared_ptr<NYBRecord>& record) const;
  // validateRecord(), then NYBAPIErrorMissingRecordID instead of whatever it
  // gave when there is no recordID (a missing record included).
  virtual std::shared_ptr<NYBError> validateRecordForUpdating(
      const std::shared_ptr<NYBRecord>& record) const;
  // The same with activityID and NYBAPIErrorMissingActivityID.
  virtual std::shared_ptr<NYBError> validateRecordForUpsert(
      const std::shared_ptr<NYBRecord>& record) const;
  // An empty list: NYBAPIErrorMissingRecord; else the first record, in order,
  // that fails validateRecord() or whose type differs from the first
  // record's (NYBAPIErrorMismatchedRecordTypes) decides; else null.
  virtual std::shared_ptr<NYBError> validateMultipleRecords(const NYBRecordList& records) const;

  // <base>/organizations/{org}/users/{uid}/{root}.json; absent without a
  // user, organisation or user identifier.
  virtual std::optional<NYBURL> urlForRecordType(NYBRecordType recordType,
                                                 const std::shared_ptr<NYBUser>& user) const;
  // <base>/organizations/{org}/users/{uid}/{root}/{recordID}.json; absent
  // without a record ID or user (the user's fields are not checked).
  virtual std::optional<NYBURL> urlForRecordTypeRecordID(
      NYBRecordType recordType, const NYBDynamicValue& recordID,
      const std::shared_ptr<NYBUser>& user) const;
  // <base>/organizations/{org}/users/{uid}/{root}/activity_id/{activityID},
  // the activity ID percent-encoded as a query is, except that a full stop is
  // encoded too (%2E) while "/", "?", "&" and "=" stay; absent without an
  // activity ID or user.
  virtual std::optional<NYBURL> urlForRecordTypeActivityID(
      NYBRecordType recordType, const NYBDynamicValue& activityID,
      const std::shared_ptr<NYBUser>& user) const;
  // <base>/organizations/{org}/users/{uid}/{root}/{recordID}/media?authentication_token={token},
  // the token as it is; absent when the record, its ID, the user or any of
  // the user's three fields is missing.
  virtual std::optional<NYBURL> urlForImageUploadRecord(const std::shared_ptr<NYBRecord>& record,
                                                        const std::shared_ptr<NYBUser>& user) const;
  // The collection and wrapping key of a record type: "" for none,
  // "biometrics" ... "intraday" for 1 to 8; absent above 8.
  virtual std::optional<std::string> JSONRootForRecordType(NYBRecordType recordType) const;
  // An array gives an array of models, one per dictionary element (others
  // skipped); a dictionary gives one model; anything else is logged ("Invalid
  // JSON Object: ...") and gives absent, as does a null class.
  virtual NYBDynamicValue transformJSONObject(const NYBDynamicValue& JSONObject,
                                              const NYBModelClass* modelClass) const;
  // "Invalid records", "Invalid record type", "Missing record ID", "Missing
  // activity ID", "Missing record", "Mismatched record types", "Record cannot be
  // encoded"; absent above 6.
  virtual std::optional<std::string> localizedDescriptionForErrorCode(NYBAPIErrorCode code) const;
  virtual std::shared_ptr<NYBError> APIErrorForErrorCode(NYBAPIErrorCode code) const;
  // Code 0, described "Invalid records: <activity IDs joined by ", ">"
  // ("(null)" for a response without one), the responses under "errorRecords".
  virtual std::shared_ptr<NYBError> APIErrorWithErrorRecords(
      const std::vector<std::shared_ptr<NYBServerResponse>>& errorRecords) const;
};

class NYB_EXPORT NYBAPIClient : public NYBObject {
  NYB_DECLARE_CLASS(NYBAPIClientClass)
 public:
  // A null user raises NYBException "Missing parameter exception" with the
  // reason "user is required"; so does the plain initialiser, always.
  explicit NYBAPIClient(std::shared_ptr<NYBUser> user);
  NYBAPIClient();

  std::shared_ptr<NYBUser> user() const;
  void setUser(std::shared_ptr<NYBUser> user);

  // POST <root>.json, body { root: record JSON, "authentication_token": token };
  // the result is a record of the record's class.
  virtual void postRecord(const std::shared_ptr<NYBRecord>& record, NYBAPICompletion completion);
  // POST of the first record's collection, body { root: [record JSON...],
  // "authentication_token": token }; the result is an array of records of the
  // first record's class.
  virtual void postMultipleRecords(const NYBRecordList& records, NYBAPICompletion completion);
  // PUT <root>/<recordID>.json, body as for a post.
  virtual void updateRecord(const std::shared_ptr<NYBRecord>& record, NYBAPICompletion completion);
  // DELETE <root>/<recordID>.json, body { "authentication_token": token };
  // the result is an NYBServerResponse read from the whole answer. A record
  // that fails its check is refused only when there is a completion to tell:
  // without one, the DELETE is sent anyway (with no URL when there is no ID).
  virtual void deleteRecord(const std::shared_ptr<NYBRecord>& record, NYBAPICompletion completion);
  // POST of the image as a multipart PNG body to the record's media path;
  // the result is an NYBMedia read from "media". Without an image the body is
  // { "authentication_token": token } as JSON.
  virtual void uploadImage(std::shared_ptr<const NYBImage> image,
                           const std::shared_ptr<NYBRecord>& record, NYBAPICompletion completion);
  // PUT <root>/activity_id/<encoded activityID>, body as for a post.
  virtual void upsertRecord(const std::shared_ptr<NYBRecord>& record, NYBAPICompletion completion);

  // Sends the request and reads its answer: the "errors" array, then the
  // value under the root (the whole answer when the root is absent or
  // missing), made into models of resultClass (the JSON itself when null).
  virtual void sendRequest(const std::shared_ptr<NYBRequest>& request,
                           std::optional<std::string> JSONRoot, const NYBModelClass* resultClass,
                           NYBAPICompletion completion);

  // Class-level conveniences, forwarding to NYBAPIClient's class object.
  static std::shared_ptr<NYBError> validateRecord(const std::shared_ptr<NYBRecord>& record) {
    return staticClass().validateRecord(record);
  }
  static std::shared_ptr<NYBError> validateRecordForUpdating(
      const std::shared_ptr<NYBRecord>& record) {
    return staticClass().validateRecordForUpdating(record);
  }
  static std::shared_ptr<NYBError> validateRecordForUpsert(
      const std::shared_ptr<NYBRecord>& record) {
    return staticClass().validateRecordForUpsert(record);
  }
  static std::shared_ptr<NYBError> validateMultipleRecords(const NYBRecordList& records) {
    return staticClass().validateMultipleRecords(records);
  }
  static std::optional<NYBURL> urlForRecordType(NYBRecordType recordType,
                                                const std::shared_ptr<NYBUser>& user) {
    return staticClass().urlForRecordType(recordType, user);
  }
  static std::optional<NYBURL> urlForRecordTypeRecordID(NYBRecordType recordType,
                                                        const NYBDynamicValue& recordID,
                                                        const std::shared_ptr<NYBUser>& user) {
    return staticClass().urlForRecordTypeRecordID(recordType, recordID, user);
  }
  static std::optional<NYBURL> urlForRecordTypeActivityID(NYBRecordType recordType,
                                                          const NYBDynamicValue& activityID,
                                                          const std::shared_ptr<NYBUser>& user) {
    return staticClass().urlForRecordTypeActivityID(recordType, activityID, user);
  }
  static std::optional<NYBURL> urlForImageUploadRecord(const std::shared_ptr<NYBRecord>& record,
                                                       const std::shared_ptr<NYBUser>& user) {
    return staticClass().urlForImageUploadRecord(record, user);
  }
  static std::optional<std::string> JSONRootForRecordType(NYBRecordType recordType) {
    return staticClass().JSONRootForRecordType(recordType);
  }
  static NYBDynamicValue transformJSONObject(const NYBDynamicValue& JSONObject,
                                             const NYBModelClass* modelClass) {
    return staticClass().transformJSONObject(JSONObject, modelClass);
  }
  static std::optional<std::string> localizedDescriptionForErrorCode(NYBAPIErrorCode code) {
    return staticClass().localizedDescriptionForErrorCode(code);
  }
  static std::shared_ptr<NYBError> APIErrorForErrorCode(NYBAPIErrorCode code) {
    return staticClass().APIErrorForErrorCode(code);
  }
  static std::shared_ptr<NYBError> APIErrorWithErrorRecords(
      const std::vector<std::shared_ptr<NYBServerResponse>>& errorRecords) {
    return staticClass().APIErrorWithErrorRecords(errorRecords);
  }

 private:
  // A request with the method and the user's token, and the body entries
  // beside the token.
  std::shared_ptr<NYBRequest> makeRequest(NYBHTTPMethod method, std::optional<NYBURL> url,
                                          const std::shared_ptr<NYBUser>& user,
                                          NYBDictionary body) const;
  // A PUT of the record under its type's root to the URL (update and upsert
  // differ only in their check and their URL).
  void putRecord(const std::shared_ptr<NYBRecord>& record, std::optional<NYBURL> url,
                 const std::shared_ptr<NYBUser>& user, NYBAPICompletion completion);

  mutable std::mutex userMutex_;
  std::shared_ptr<NYBUser> user_;
};

}  // namespace nyb
