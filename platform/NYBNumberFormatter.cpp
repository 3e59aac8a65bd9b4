#include "NymbrelCore/NYBNumberFormatter.h"

#include <unicode/fmtable.h>
#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <mutex>
#include <utility>

namespace nyb {

struct NYBNumberFormatter::Impl {
  mutable std::mutex mutex;
  std::optional<std::string> localeID;
  // Made on first use after a change; null if the engine cannot be made.
  mutable std::unique_ptr<icu::NumberFormat> engine;
  mutable bool engineReady = false;

  // Called with the mutex held.
  const icu::NumberFormat* prepare() const {
    if (!engineReady) {
      engineReady = true;
      UErrorCode status = U_ZERO_ERROR;
      const icu::Locale locale =
          localeID ? icu::Locale(localeID->c_str()) : icu::Locale::getDefault();
      std::unique_ptr<icu::NumberFormat> made(icu::NumberFormat::createInstance(locale, status));
      if (U_SUCCESS(status)) engine = std::move(made);
    }
    return engine.get();
  }
};

NYBNumberFormatter::NYBNumberFormatter() : impl_(std::make_unique<Impl>()) {}

NYBNumberFormatter::~NYBNumberFormatter() = default;

void NYBNumberFormatter::setLocale(std::optional<std::string> localeID) {
  std::lock_guard lock(impl_->mutex);
  impl_->localeID = std::move(localeID);
  impl_->engine.reset();
  impl_->engineReady = false;
}

std::optional<std::string> NYBNumberFormatter::locale() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->localeID;
}

std::optional<std::string> NYBNumberFormatter::stringFromNumber(double number) const {
  icu::UnicodeString text;
  {
    std::lock_guard lock(impl_->mutex);
    const icu::NumberFormat* engine = impl_->prepare();
    if (engine == nullptr) return std::nullopt;
    engine->format(number, text);
  }
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::optional<double> NYBNumberFormatter::numberFromString(std::string_view text) const {
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  icu::Formattable result;
  icu::ParsePosition position(0);
  {
    std::lock_guard lock(impl_->mutex);
    const icu::NumberFormat* engine = impl_->prepare();
    if (engine == nullptr) return std::nullopt;
    engine->parse(unicode, result, position);
  }
  if (position.getErrorIndex() != -1 || position.getIndex() == 0 ||
      position.getIndex() != unicode.length()) {
    return std::nullopt;
  }
  UErrorCode status = U_ZERO_ERROR;
  const double value = result.getDouble(status);
  if (U_FAILURE(status)) return std::nullopt;
  return value;
}

}  // namespace nyb
