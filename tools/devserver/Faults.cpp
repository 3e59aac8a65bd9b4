#include "Faults.h"

#include "Encoding.h"
#include "Json.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <stdexcept>

namespace nyb::devserver {

namespace {

[[noreturn]] void invalid(const std::string& message) { throw std::invalid_argument(message); }

void validate(const FaultRule& rule) {
  if (rule.status && (*rule.status < 100 || *rule.status > 599))
    invalid("status must be 100 to 599");
  if (rule.status && rule.close) invalid("a fault either answers a status or closes, not both");
  if (!rule.status && !rule.close && rule.delay.count() == 0) {
    invalid("a fault needs a status, close or delay_ms");
  }
  if (rule.body && !rule.status) invalid("body needs a status");
  if (rule.delay.count() < 0 || rule.delay.count() > 600000) {
    invalid("delay_ms must be 0 to 600000");
  }
  if (rule.count && *rule.count == 0) invalid("count must be at least 1");
  if (rule.fraction && !(*rule.fraction > 0.0 && *rule.fraction <= 1.0)) {
    invalid("fraction must be above 0 and at most 1");
  }
  for (char c : rule.method) {
    if (c < 'A' || c > 'Z') invalid("method must be an upper-case HTTP method");
  }
}

std::uint64_t toUnsigned(std::string_view key, std::string_view text) {
  std::uint64_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    invalid(std::string(key) + " expects a whole number, got \"" + std::string(text) + "\"");
  }
  return value;
}

// Uniform in [0, 1) from the top 53 bits: the same sequence on every platform.
double draw(std::mt19937_64& random) { return static_cast<double>(random() >> 11) * 0x1.0p-53; }

std::string defaultBody(int status) {
  return status >= 400 ? errorsBody(status, "fault injected by the devserver") : std::string();
}

}  // namespace

FaultRule parseFaultRule(const rapidjson::Value& json) {
  if (!json.IsObject()) invalid("a fault is a JSON object");
  FaultRule rule;
  for (const auto& member : json.GetObject()) {
    std::string_view key(member.name.GetString(), member.name.GetStringLength());
    const auto& value = member.value;
    if (key == "status" && value.IsInt()) {
      rule.status = value.GetInt();
    } else if (key == "body") {
      rule.body = value.IsString() ? std::string(value.GetString(), value.GetStringLength())
                                   : toJson(value);
    } else if (key == "delay_ms" && value.IsUint()) {
      rule.delay = std::chrono::milliseconds(value.GetUint());
    } else if (key == "close" && value.IsBool()) {
      rule.close = value.GetBool();
    } else if (key == "count" && value.IsUint64()) {
      rule.count = value.GetUint64();
    } else if (key == "fraction" && value.IsNumber()) {
      rule.fraction = value.GetDouble();
    } else if (key == "seed" && value.IsUint64()) {
      rule.seed = value.GetUint64();
    } else if (key == "method" && value.IsString()) {
      rule.method = value.GetString();
    } else {
      invalid("unknown key or wrong type: \"" + std::string(key) + "\"");
    }
  }
  validate(rule);
  return rule;
}

FaultRule parseFaultArgument(std::string_view text) {
  FaultRule rule;
  while (!text.empty()) {
    if (text.substr(0, 5) == "body=") {
      rule.body = std::string(text.substr(5));
      break;
    }
    auto comma = text.find(',');
    auto item = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    auto equals = item.find('=');
    auto key = item.substr(0, equals);
    auto value = equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1);
    if (key == "close" && equals == std::string_view::npos) {
      rule.close = true;
    } else if (key == "status") {
      rule.status = static_cast<int>(toUnsigned(key, value));
    } else if (key == "delay_ms") {
      rule.delay = std::chrono::milliseconds(toUnsigned(key, value));
    } else if (key == "count") {
      rule.count = toUnsigned(key, value);
    } else if (key == "seed") {
      rule.seed = toUnsigned(key, value);
    } else if (key == "method") {
      rule.method = std::string(value);
    } else if (key == "fraction") {
      try {
        size_t used = 0;
        rule.fraction = std::stod(std::string(value), &used);
        if (used != value.size()) throw std::invalid_argument("trailing text");
      } catch (const std::exception&) {
        invalid("fraction expects a number, got \"" + std::string(value) + "\"");
      }
    } else {
      invalid("unknown fault item \"" + std::string(item) + "\"");
    }
  }
  validate(rule);
  return rule;
}

int Faults::add(const FaultRule& rule) {
  validate(rule);
  std::lock_guard lock(mutex_);
  int id = nextID_++;
  entries_.push_back(Entry{id, rule, std::mt19937_64(rule.seed), 0});
  return id;
}

void Faults::clear() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

std::optional<FaultAction> Faults::take(std::string_view method) {
  std::lock_guard lock(mutex_);
  for (auto& entry : entries_) {
    auto& rule = entry.rule;
    if (!rule.method.empty() && rule.method != method) continue;
    if (rule.count && *rule.count == 0) continue;
    if (rule.fraction && draw(entry.random) >= *rule.fraction) continue;
    if (rule.count) --*rule.count;
    ++entry.hits;
    FaultAction action;
    action.delay = rule.delay;
    if (rule.close) {
      action.kind = FaultAction::Kind::Close;
    } else if (rule.status) {
      action.kind = FaultAction::Kind::Answer;
      action.status = *rule.status;
      action.body = rule.body ? *rule.body : defaultBody(*rule.status);
      rapidjson::Document parsed;
      std::string error;
      action.contentType =
          parseJson(action.body, parsed, error) ? kJsonContentType : "text/plain; charset=utf-8";
    }
    return action;
  }
  return std::nullopt;
}

std::string Faults::describe() const {
  std::lock_guard lock(mutex_);
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("faults");
  writer.StartArray();
  for (const auto& entry : entries_) {
    const auto& rule = entry.rule;
    writer.StartObject();
    writer.Key("id");
    writer.Int(entry.id);
    if (rule.status) {
      writer.Key("status");
      writer.Int(*rule.status);
    }
    if (rule.body) {
      writer.Key("body");
      writer.String(rule.body->c_str(), static_cast<rapidjson::SizeType>(rule.body->size()));
    }
    writer.Key("delay_ms");
    writer.Int64(rule.delay.count());
    writer.Key("close");
    writer.Bool(rule.close);
    if (rule.fraction) {
      writer.Key("fraction");
      writer.Double(*rule.fraction);
      writer.Key("seed");
      writer.Uint64(rule.seed);
    }
    if (!rule.method.empty()) {
      writer.Key("method");
      writer.String(rule.method.c_str());
    }
    writer.Key("remaining");
    if (rule.count) {
      writer.Uint64(*rule.count);
    } else {
      writer.Null();
    }
    writer.Key("hits");
    writer.Uint64(entry.hits);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
  return {buffer.GetString(), buffer.GetSize()};
}

bool Faults::wait(std::chrono::milliseconds delay) {
  std::unique_lock lock(mutex_);
  return !stopped_.wait_for(lock, delay, [this] { return stopping_; });
}

void Faults::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
}

}  // namespace nyb::devserver
