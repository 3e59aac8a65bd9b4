#include "Json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <cmath>
#include <utility>

namespace nyb::devserver {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void write(Writer& writer, const rapidjson::Value& value) {
  switch (value.GetType()) {
    case rapidjson::kNullType:
      writer.Null();
      break;
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      writer.Bool(value.GetBool());
      break;
    case rapidjson::kStringType:
      writer.String(value.GetString(), value.GetStringLength());
      break;
    case rapidjson::kArrayType:
      writer.StartArray();
      for (const auto& element : value.GetArray()) write(writer, element);
      writer.EndArray();
      break;
    case rapidjson::kObjectType:
      writer.StartObject();
      for (const auto& member : value.GetObject()) {
        writer.Key(member.name.GetString(), member.name.GetStringLength());
        write(writer, member.value);
      }
      writer.EndObject();
      break;
    case rapidjson::kNumberType:
      if (value.IsInt64()) {
        writer.Int64(value.GetInt64());
      } else if (value.IsUint64()) {
        writer.Uint64(value.GetUint64());
      } else if (std::isfinite(value.GetDouble())) {
        // RapidJSON's own double writer is not always shortest; to_chars is.
        char buffer[32];
        auto result = std::to_chars(buffer, buffer + sizeof buffer, value.GetDouble());
        writer.RawValue(buffer, static_cast<size_t>(result.ptr - buffer), rapidjson::kNumberType);
      } else {
        writer.Null();
      }
      break;
  }
}

}  // namespace

bool parseJson(std::string_view text, rapidjson::Document& out, std::string& error) {
  out.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  if (!out.HasParseError()) return true;
  error = std::string("body is not JSON: ") + rapidjson::GetParseError_En(out.GetParseError()) +
          " (at byte " + std::to_string(out.GetErrorOffset()) + ")";
  return false;
}

std::string toJson(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  write(writer, value);
  return {buffer.GetString(), buffer.GetSize()};
}

std::string jsonString(std::string_view text) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  return {buffer.GetString(), buffer.GetSize()};
}

std::string errorsBody(const std::vector<ErrorEntry>& errors) {
  std::string body = "{\"errors\":[";
  for (size_t i = 0; i < errors.size(); ++i) {
    const auto& entry = errors[i];
    if (i > 0) body += ',';
    body += "{\"code\":" + std::to_string(entry.code) + ",\"message\":" + jsonString(entry.message);
    if (entry.activityID) body += ",\"activity_id\":" + jsonString(*entry.activityID);
    body += '}';
  }
  return body + "]}";
}

std::string errorsBody(int code, std::string_view message) {
  return errorsBody({ErrorEntry{code, std::string(message), std::nullopt}});
}

const rapidjson::Value* member(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) return nullptr;
  auto it = object.FindMember(key);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

rapidjson::Value* member(rapidjson::Value& object, const char* key) {
  return const_cast<rapidjson::Value*>(member(std::as_const(object), key));
}

std::optional<std::string_view> stringMember(const rapidjson::Value& object, const char* key) {
  auto value = member(object, key);
  if (value == nullptr || !value->IsString()) return std::nullopt;
  return std::string_view(value->GetString(), value->GetStringLength());
}

}  // namespace nyb::devserver
