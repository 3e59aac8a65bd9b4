// The record rules of the devserver: which record roots exist, what a record must carry,
// and how a stored record is stamped.
//
// Contract: these rules are the stand-in's own, stricter than nothing and simpler than the
// real service. A record is a JSON object; "timestamp" is required and must have the form
// 2016-03-01T14:05:09+00:00 (422 otherwise, the entry carrying the record's "activity_id");
// "activity_id", when present, must be a string (400). The server owns "_id",
// "last_updated" and "media": whatever a client sends under those keys is replaced.
// Every function is thread-safe.
#pragma once

#include "Json.h"

#include <rapidjson/document.h>

#include <optional>
#include <string>
#include <string_view>

namespace nyb::devserver {

// The collections the REST interface serves, one per record type.
bool isRecordRoot(std::string_view root);

// Date, time and a ±HH:MM offset, each field within its range.
bool isRecordTimestamp(std::string_view text);

// The current time in the record timestamp's form, in UTC (offset +00:00).
std::string currentTimestamp();

// 24 lower-case hex digits: seconds, a per-process nonce and a counter, so identifiers are
// unique within a run and across restarts that share a database file.
std::string newObjectID();

struct RecordProblem {
  int status = 0;  // 400 for a malformed record, 422 for a missing or malformed timestamp
  ErrorEntry entry;
};
std::optional<RecordProblem> checkRecord(const rapidjson::Value& record);

// The record's "activity_id", when it has a string one.
std::optional<std::string> activityIDOf(const rapidjson::Value& record);

// Gives `record` the server's "_id" and "last_updated", and the stored "media" array
// (`media` may be null or an empty array: the key is then left out).
void stampRecord(rapidjson::Document& record, std::string_view id, std::string_view lastUpdated,
                 const rapidjson::Value* media);

// The stored record text with {"id": .., "url": ..} appended to its "media" array.
std::string appendMedia(std::string_view recordJson, std::string_view mediaID,
                        std::string_view mediaURL);

// The "media" array of a stored record text (an empty array when it has none).
rapidjson::Document mediaOf(std::string_view recordJson);

}  // namespace nyb::devserver
