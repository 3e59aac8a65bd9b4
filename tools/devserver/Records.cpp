#include "Records.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <random>

#include "records/RecordTypeList.h"

namespace nyb::devserver {

namespace {

// Reads `count` digits at `pos` into `value`; false if any is not a digit.
bool digits(std::string_view text, size_t pos, size_t count, int& value) {
  value = 0;
  for (size_t i = pos; i < pos + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    value = value * 10 + (text[i] - '0');
  }
  return true;
}

void setMember(rapidjson::Document& record, const char* key, rapidjson::Value value) {
  auto& allocator = record.GetAllocator();
  if (auto existing = member(record, key)) {
    *existing = std::move(value);
  } else {
    record.AddMember(rapidjson::Value(key, allocator), std::move(value), allocator);
  }
}

}  // namespace

bool isRecordRoot(std::string_view root) {
  for (const records::RecordTypeDescription* type : records::kRecordTypes) {
    if (type->root == root) return true;
  }
  return false;
}

bool isRecordTimestamp(std::string_view text) {
  // yyyy-MM-ddTHH:mm:ss±HH:MM
  if (text.size() != 25) return false;
  if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':' ||
      (text[19] != '+' && text[19] != '-') || text[22] != ':') {
    return false;
  }
  int year, month, day, hour, minute, second, offsetHours, offsetMinutes;
  if (!digits(text, 0, 4, year) || !digits(text, 5, 2, month) || !digits(text, 8, 2, day) ||
      !digits(text, 11, 2, hour) || !digits(text, 14, 2, minute) || !digits(text, 17, 2, second) ||
      !digits(text, 20, 2, offsetHours) || !digits(text, 23, 2, offsetMinutes)) {
    return false;
  }
  return month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour <= 23 && minute <= 59 &&
         second <= 60 && offsetHours <= 23 && offsetMinutes <= 59;
}

std::string currentTimestamp() {
  std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc{};
  gmtime_r(&now, &utc);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S+00:00", &utc);
  return buffer;
}

std::string newObjectID() {
  static const std::uint64_t nonce = [] {
    std::random_device device;
    return ((std::uint64_t{device()} << 32) | device()) & 0xffffffffffULL;  // 40 bits
  }();
  static std::atomic<std::uint32_t> counter{[] {
    std::random_device device;
    return static_cast<std::uint32_t>(device());
  }()};
  auto seconds = static_cast<std::uint32_t>(std::time(nullptr));
  auto count = counter.fetch_add(1, std::memory_order_relaxed) & 0xffffffU;  // 24 bits
  char buffer[25];
  std::snprintf(buffer, sizeof buffer, "%08x%010llx%06x", seconds,
                static_cast<unsigned long long>(nonce), count);
  return buffer;
}

std::optional<RecordProblem> checkRecord(const rapidjson::Value& record) {
  if (!record.IsObject()) {
    return RecordProblem{400, {400, "a record must be a JSON object", std::nullopt}};
  }
  auto activity = member(record, "activity_id");
  if (activity != nullptr && !activity->IsString()) {
    return RecordProblem{400, {400, "\"activity_id\" must be a string", std::nullopt}};
  }
  auto activityID = activityIDOf(record);
  auto timestamp = member(record, "timestamp");
  if (timestamp == nullptr) {
    return RecordProblem{422, {422, "\"timestamp\" is required", activityID}};
  }
  if (!timestamp->IsString() ||
      !isRecordTimestamp({timestamp->GetString(), timestamp->GetStringLength()})) {
    return RecordProblem{
        422,
        {422, "\"timestamp\" must be a date-time such as 2016-03-01T14:05:09+00:00", activityID}};
  }
  return std::nullopt;
}

std::optional<std::string> activityIDOf(const rapidjson::Value& record) {
  auto value = stringMember(record, "activity_id");
  if (!value) return std::nullopt;
  return std::string(*value);
}

void stampRecord(rapidjson::Document& record, std::string_view id, std::string_view lastUpdated,
                 const rapidjson::Value* media) {
  auto& allocator = record.GetAllocator();
  setMember(record, "_id",
            rapidjson::Value(id.data(), static_cast<rapidjson::SizeType>(id.size()), allocator));
  setMember(record, "last_updated",
            rapidjson::Value(lastUpdated.data(),
                             static_cast<rapidjson::SizeType>(lastUpdated.size()), allocator));
  record.RemoveMember("media");
  if (media != nullptr && media->IsArray() && !media->Empty()) {
    setMember(record, "media", rapidjson::Value(*media, allocator));
  }
}

std::string appendMedia(std::string_view recordJson, std::string_view mediaID,
                        std::string_view mediaURL) {
  rapidjson::Document record;
  std::string error;
  if (!parseJson(recordJson, record, error) || !record.IsObject()) return std::string(recordJson);
  auto& allocator = record.GetAllocator();
  auto media = member(record, "media");
  if (media == nullptr || !media->IsArray()) {
    record.RemoveMember("media");
    record.AddMember("media", rapidjson::Value(rapidjson::kArrayType), allocator);
    media = member(record, "media");
  }
  rapidjson::Value entry(rapidjson::kObjectType);
  entry.AddMember(
      "id",
      rapidjson::Value(mediaID.data(), static_cast<rapidjson::SizeType>(mediaID.size()), allocator),
      allocator);
  entry.AddMember("url",
                  rapidjson::Value(mediaURL.data(),
                                   static_cast<rapidjson::SizeType>(mediaURL.size()), allocator),
                  allocator);
  media->PushBack(std::move(entry), allocator);
  return toJson(record);
}

rapidjson::Document mediaOf(std::string_view recordJson) {
  rapidjson::Document record;
  rapidjson::Document media;
  media.SetArray();
  std::string error;
  if (parseJson(recordJson, record, error) && record.IsObject()) {
    auto stored = member(record, "media");
    if (stored != nullptr && stored->IsArray()) media.CopyFrom(*stored, media.GetAllocator());
  }
  return media;
}

}  // namespace nyb::devserver
