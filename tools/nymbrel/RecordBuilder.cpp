#include "RecordBuilder.h"

#include <NymbrelCore/NYBArray.h>
#include <NymbrelCore/NYBDateFormatter.h>
#include <NymbrelCore/NYBDiabetes.h>
#include <NymbrelCore/NYBFormatter.h>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <set>

namespace nymbrel {

using nyb::NYBDynamicValue;

namespace {

std::string lowercase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

std::string quotedText(std::string_view text) { return "\"" + std::string(text) + "\""; }

NYBDynamicValue parseNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const char* end = text.data() + text.size();
  std::int64_t integer = 0;
  auto [integerEnd, integerError] = std::from_chars(text.data(), end, integer);
  if (integerError == std::errc() && integerEnd == end) return integer;
  double real = 0;
  auto [realEnd, realError] = std::from_chars(text.data(), end, real);
  if (realError == std::errc() && realEnd == end && std::isfinite(real)) return real;
  return {};
}

std::shared_ptr<nyb::NYBDateFormatter> localFormatter(const char* pattern) {
  auto formatter = std::make_shared<nyb::NYBDateFormatter>();
  formatter->setLocale("en_US_POSIX");
  formatter->setDateFormat(pattern);
  return formatter;
}

}  // namespace

std::optional<nyb::NYBDate> parseDateTime(std::string_view text) {
  if (lowercase(text) == "now") return nyb::NYBDate::now();
  std::string withOffset(text);
  if (!withOffset.empty() && (withOffset.back() == 'Z' || withOffset.back() == 'z')) {
    withOffset.replace(withOffset.size() - 1, 1, "+00:00");
  }
  if (auto date = nyb::NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->dateFromString(
          withOffset)) {
    return date;
  }
  static const auto localDateTime = localFormatter("yyyy-MM-dd'T'HH:mm:ss");
  static const auto localDate = localFormatter("yyyy-MM-dd");
  if (auto date = localDateTime->dateFromString(text)) return date;
  return localDate->dateFromString(text);
}

NYBDynamicValue parseFieldValue(ValueKind kind, std::string_view text, std::string* error) {
  auto fail = [&](const std::string& why) {
    *error = quotedText(text) + " " + why;
    return NYBDynamicValue();
  };
  std::string lower = lowercase(text);
  switch (kind) {
    case ValueKind::Number: {
      NYBDynamicValue number = parseNumber(text);
      return number.isPresent() ? number : fail("is not a number");
    }
    case ValueKind::Text:
      return std::string(text);
    case ValueKind::Boolean:
      if (lower == "true" || lower == "yes" || lower == "1") return true;
      if (lower == "false" || lower == "no" || lower == "0") return false;
      return fail("is not true or false");
    case ValueKind::DateTime:
      if (auto date = parseDateTime(text)) return *date;
      return fail("is not a date-time such as 2016-03-01T14:05:09+01:00");
    case ValueKind::MealRelationship: {
      auto relationship = nyb::NYBDiabetes::mealRelationshipForstringValue(lower);
      if (relationship == nyb::NYBMealRelationshipNone && lower != "none") {
        return fail("is not one of none, before, after, random, fasting");
      }
      return static_cast<std::uint64_t>(relationship);
    }
    case ValueKind::DiabetesEvent: {
      auto event = nyb::NYBDiabetes::DiabetesEventForStringValue(lower);
      if (event == nyb::NYBDiabetesEventNone && lower != "none") {
        return fail("is not one of exercise, sick, medication, other");
      }
      return static_cast<std::uint64_t>(event);
    }
    case ValueKind::OutOfRange:
      if (lower == "high") return static_cast<std::uint64_t>(nyb::NYBDiabetesOutOfRangeHigh);
      if (lower == "low") return static_cast<std::uint64_t>(nyb::NYBDiabetesOutOfRangeLow);
      if (lower == "none") return static_cast<std::uint64_t>(nyb::NYBDiabetesOutOfRangeNone);
      return fail("is not high or low");
    case ValueKind::DataPoint: {
      const std::string example =
          "is not a data point such as "
          "2016-03-01T14:00:00+00:00/2016-03-01T14:15:00+00:00=120";
      auto equals = text.rfind('=');
      auto slash = text.find('/');
      if (equals == std::string_view::npos || slash == std::string_view::npos || slash > equals) {
        return fail(example);
      }
      auto start = parseDateTime(text.substr(0, slash));
      auto end = parseDateTime(text.substr(slash + 1, equals - slash - 1));
      NYBDynamicValue count = parseNumber(text.substr(equals + 1));
      if (!start || !end || !count.isPresent()) return fail(example);
      if (*end < *start) return fail("ends before it starts");
      return nyb::NYBArray{*start, *end, count.doubleValue()};
    }
    case ValueKind::UtcOffset: {
      // The service keeps the text as it comes and reads it as an offset later.
      auto digits = [&](std::size_t at) {
        return std::isdigit(static_cast<unsigned char>(text[at])) &&
               std::isdigit(static_cast<unsigned char>(text[at + 1]));
      };
      bool shaped = text.size() == 6 && (text[0] == '+' || text[0] == '-') && digits(1) &&
                    text[3] == ':' && digits(4);
      if (!shaped) return fail("is not a UTC offset such as +01:00 or -05:30");
      int hours = (text[1] - '0') * 10 + (text[2] - '0');
      int minutes = (text[4] - '0') * 10 + (text[5] - '0');
      if (hours > 14 || minutes > 59) return fail("is not a UTC offset: at most +14:00 or -14:00");
      return std::string(text);
    }
  }
  return fail("cannot be read");
}

BuildResult buildRecord(const RecordInput& input) {
  BuildResult result;
  const RecordTypeSpec& type = *input.type;
  auto& errors = result.errors;

  std::vector<NYBDynamicValue> values;
  std::set<const FieldSpec*> seen;
  for (const auto& given : input.fields) {
    std::string why;
    values.push_back(parseFieldValue(given.field->kind, given.text, &why));
    if (!why.empty()) errors.push_back(given.label + ": " + why);
    if (!seen.insert(given.field).second && given.field->kind != ValueKind::DataPoint) {
      errors.push_back(given.label + ": given more than once");
    }
  }

  std::uint64_t unit = 0;  // every family's standard unit
  const FieldSpec* unitField = type.unitField();
  if (input.unit) {
    if (unitField == nullptr) {
      errors.push_back(input.unitLabel + ": a " + std::string(type.name) +
                       " record has no field with a unit");
    } else if (auto parsed = parseUnit(unitField->unit, *input.unit)) {
      unit = *parsed;
      if (!seen.contains(unitField)) {
        errors.push_back(input.unitLabel + ": " + quotedText(*input.unit) + " given without " +
                         input.fieldPrefix + std::string(unitField->name));
      }
    } else {
      errors.push_back(input.unitLabel + ": " + quotedText(*input.unit) + " is not a unit of " +
                       std::string(unitField->name) + " (" + unitChoices(unitField->unit) + ")");
    }
  }
  if (type.type == nyb::NYBRecordTypeIntraDay && errors.empty()) {
    const FieldInput* ends[2] = {nullptr, nullptr};  // start, end
    std::optional<nyb::NYBDate> dates[2];
    for (std::size_t i = 0; i < input.fields.size(); ++i) {
      int which = input.fields[i].field->property == "start" ? 0
                  : input.fields[i].field->property == "end" ? 1
                                                             : -1;
      if (which < 0) continue;
      ends[which] = &input.fields[i];
      dates[which] = values[i].date();
    }
    if (!ends[0] || !ends[1]) {
      errors.push_back("an intraday record needs both " + input.fieldPrefix + "start and " +
                       input.fieldPrefix + "end");
    } else if (auto problem = intradayRangeProblem(dates[0], dates[1])) {
      errors.push_back(ends[1]->label + ": " + quotedText(ends[1]->text) + " " + *problem);
    }
  }
  if (!errors.empty()) return result;

  auto record = nyb::NYBRecord::newRecordWithType(type.type);
  // The timestamp goes first: its setter also sets the UTC offset, which a
  // given offset then replaces.
  auto timestamp = std::find_if(input.fields.begin(), input.fields.end(), [](const FieldInput& f) {
    return f.field->property == "timestamp";
  });
  record->setValue(timestamp != input.fields.end()
                       ? values[static_cast<std::size_t>(timestamp - input.fields.begin())]
                       : NYBDynamicValue(nyb::NYBDate::now()),
                   "timestamp");
  for (std::size_t i = 0; i < input.fields.size(); ++i) {
    const FieldSpec& field = *input.fields[i].field;
    if (field.property == "timestamp") continue;
    if (&field == unitField) {
      record->setMeasurementValue(values[i], unit, field.property);
    } else if (field.setter != nullptr) {
      field.setter(*record, values[i]);
    } else if (field.jsonKey.starts_with(kExtrasPrefix)) {
      record->setExtraValue(values[i], field.jsonKey.substr(kExtrasPrefix.size()));
    } else {
      record->setValue(values[i], field.property);
    }
  }
  if (record->activityID().isAbsent()) record->setActivityID(newActivityID());
  result.record = std::move(record);
  return result;
}

std::optional<std::string> intradayRangeProblem(const std::optional<nyb::NYBDate>& start,
                                                const std::optional<nyb::NYBDate>& end) {
  if (!start || !end) return "a range needs both its start and its end";
  if (*end < *start) return "is before the start";
  return std::nullopt;
}

std::shared_ptr<nyb::NYBImage> loadPhoto(const std::string& path, std::string* error) {
  std::error_code failure;
  auto status = std::filesystem::status(path, failure);
  if (status.type() == std::filesystem::file_type::not_found) {
    *error = ": no such file";
  } else if (failure) {
    *error = ": " + failure.message();
  } else if (std::filesystem::is_directory(status)) {
    *error = ": is a directory";
  } else if (::access(path.c_str(), R_OK) != 0) {
    *error = std::string(": ") + std::strerror(errno);
  } else if (auto photo = nyb::NYBImage::imageWithContentsOfFile(path)) {
    return photo;
  } else {
    *error = " is not a PNG image";
  }
  return nullptr;
}

std::string newActivityID() {
  static std::mutex mutex;
  static std::mt19937_64 generator{std::random_device{}()};
  std::uint64_t high, low;
  {
    std::lock_guard lock(mutex);
    high = generator();
    low = generator();
  }
  high = (high & 0xFFFFFFFFFFFF0FFFULL) | 0x0000000000004000ULL;  // version 4
  low = (low & 0x3FFFFFFFFFFFFFFFULL) | 0x8000000000000000ULL;    // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%08llX-%04llX-%04llX-%04llX-%012llX",
                static_cast<unsigned long long>(high >> 32),
                static_cast<unsigned long long>((high >> 16) & 0xFFFF),
                static_cast<unsigned long long>(high & 0xFFFF),
                static_cast<unsigned long long>(low >> 48),
                static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
  return text;
}

}  // namespace nymbrel
