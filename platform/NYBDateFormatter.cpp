#include "NymbrelCore/NYBDateFormatter.h"

#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/ucal.h>
#include <unicode/unistr.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <utility>

#include "NymbrelCore/NYBException.h"

namespace nyb {

namespace {

// Bumped after every change of the device's zone, so that formatters that
// follow the device's zone know when to fetch it again.
std::atomic<std::uint64_t> deviceZoneGeneration{0};

// The calendar's range, in milliseconds either side of 1970 (about 5.8 million years).
constexpr double kMaxMilliseconds = 183882168921600000.0;

std::string toUTF8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

// A zone for an identifier, or nullptr when the time-zone database does not know it.
std::unique_ptr<icu::TimeZone> zoneForID(const std::string& zoneID) {
  std::unique_ptr<icu::TimeZone> zone(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zoneID)));
  icu::UnicodeString resolved;
  zone->getID(resolved);
  if (resolved == icu::UnicodeString(UCAL_UNKNOWN_ZONE_ID) && zoneID != UCAL_UNKNOWN_ZONE_ID) {
    return nullptr;
  }
  return zone;
}

std::unique_ptr<icu::TimeZone> knownZone(const std::string& zoneID) {
  std::unique_ptr<icu::TimeZone> zone = zoneForID(zoneID);
  if (!zone) throw NYBInvalidArgumentException("Unknown time zone identifier: " + zoneID);
  return zone;
}

}  // namespace

struct NYBDateFormatter::Impl {
  mutable std::mutex mutex;
  std::optional<std::string> localeID;
  std::string pattern;
  std::optional<std::string> zoneID;
  std::unique_ptr<icu::TimeZone> zone;  // present when zoneID is

  // The engine for the current settings, made on first use after a change;
  // null while the settings make no valid engine (a malformed pattern).
  mutable std::unique_ptr<icu::SimpleDateFormat> engine;
  mutable bool engineReady = false;
  // The device-zone generation that the engine holds, when it follows the device.
  mutable std::uint64_t engineZoneGeneration = 0;

  void invalidate() {
    engine.reset();
    engineReady = false;
  }

  // Called with the mutex held.
  icu::SimpleDateFormat* prepare() const {
    if (!engineReady) {
      engineReady = true;
      UErrorCode status = U_ZERO_ERROR;
      const icu::Locale locale =
          localeID ? icu::Locale(localeID->c_str()) : icu::Locale::getDefault();
      auto made = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern),
                                                          locale, status);
      made->setLenient(false);
      made->setBooleanAttribute(UDAT_PARSE_ALLOW_WHITESPACE, false, status);
      made->setBooleanAttribute(UDAT_PARSE_ALLOW_NUMERIC, false, status);
      made->setBooleanAttribute(UDAT_PARSE_PARTIAL_LITERAL_MATCH, false, status);
      made->setBooleanAttribute(UDAT_PARSE_MULTIPLE_PATTERNS_FOR_MATCH, false, status);
      if (U_FAILURE(status)) return nullptr;
      if (zone) {
        made->setTimeZone(*zone);
      } else {
        engineZoneGeneration = deviceZoneGeneration.load();
        made->adoptTimeZone(icu::TimeZone::createDefault());
      }
      engine = std::move(made);
    } else if (engine && !zone) {
      // Read the generation before the zone: a change between the two is
      // fetched again on the next call, never missed.
      const std::uint64_t generation = deviceZoneGeneration.load();
      if (generation != engineZoneGeneration) {
        engineZoneGeneration = generation;
        engine->adoptTimeZone(icu::TimeZone::createDefault());
      }
    }
    return engine.get();
  }
};

NYBDateFormatter::NYBDateFormatter() : impl_(std::make_unique<Impl>()) {}

NYBDateFormatter::~NYBDateFormatter() = default;

void NYBDateFormatter::setLocale(std::optional<std::string> localeID) {
  std::lock_guard lock(impl_->mutex);
  impl_->localeID = std::move(localeID);
  impl_->invalidate();
}

std::optional<std::string> NYBDateFormatter::locale() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->localeID;
}

void NYBDateFormatter::setDateFormat(std::string pattern) {
  std::lock_guard lock(impl_->mutex);
  impl_->pattern = std::move(pattern);
  impl_->invalidate();
}

std::string NYBDateFormatter::dateFormat() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->pattern;
}

void NYBDateFormatter::setTimeZone(std::optional<std::string> zoneID) {
  std::unique_ptr<icu::TimeZone> zone = zoneID ? knownZone(*zoneID) : nullptr;
  std::lock_guard lock(impl_->mutex);
  impl_->zoneID = std::move(zoneID);
  impl_->zone = std::move(zone);
  impl_->invalidate();
}

std::optional<std::string> NYBDateFormatter::timeZone() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->zoneID;
}

std::optional<std::string> NYBDateFormatter::stringFromDate(
    const std::optional<NYBDate>& date) const {
  if (!date) return std::nullopt;
  const double milliseconds = date->timeIntervalSince1970() * 1000.0;
  if (!std::isfinite(milliseconds) || std::fabs(milliseconds) > kMaxMilliseconds) {
    return std::nullopt;
  }
  icu::UnicodeString text;
  UErrorCode status = U_ZERO_ERROR;
  {
    std::lock_guard lock(impl_->mutex);
    const icu::SimpleDateFormat* engine = impl_->prepare();
    if (engine == nullptr) return std::nullopt;
    engine->format(milliseconds, text, static_cast<icu::FieldPositionIterator*>(nullptr), status);
  }
  if (U_FAILURE(status)) return std::nullopt;
  return toUTF8(text);
}

std::optional<NYBDate> NYBDateFormatter::dateFromString(std::string_view text) const {
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  icu::ParsePosition position(0);
  UDate milliseconds = 0;
  {
    std::lock_guard lock(impl_->mutex);
    const icu::SimpleDateFormat* engine = impl_->prepare();
    if (engine == nullptr) return std::nullopt;
    milliseconds = engine->parse(unicode, position);
  }
  if (position.getErrorIndex() != -1 || position.getIndex() == 0 ||
      position.getIndex() != unicode.length()) {
    return std::nullopt;
  }
  return NYBDate(milliseconds / 1000.0);
}

void NYBDateFormatter::setDeviceTimeZone(const std::string& zoneID) {
  icu::TimeZone::adoptDefault(knownZone(zoneID).release());
  deviceZoneGeneration.fetch_add(1);
}

std::string NYBDateFormatter::deviceTimeZoneID() {
  const std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
  icu::UnicodeString id;
  zone->getID(id);
  return toUTF8(id);
}

}  // namespace nyb
