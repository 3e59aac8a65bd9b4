#include "NymbrelCore/NYBIntraDay.h"

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBFormatter.h"
#include "platform/UUID.h"
#include "records/types/IntraDay.h"

namespace nyb {

namespace {

NYBKeyMap intraDayKeyPaths() {
  // The device dictionary goes under "device" alone: this map has no
  // sourcePeripheral, so the key means the same as in every other record
  // document (where the reading came from).
  return {{"range", "range"},
          {"entries", "data_points"},
          {"sourceName", "source_name"},
          {"source", "source"},
          {"originalSource", "original_source"},
          {"device", "device"},
          {"timestamp", "timestamp"},
          {"utcOffset", "utc_offset"},
          {"unit", "unit"},
          {"type", "type"},
          {"activityID", "activity_id"},
          {"intermediarySource", "intermediary_source"},
          {"manufacturer", "manufacturer"},
          {"model", "model"}};
}

std::optional<NYBDate> parsedUTC(const NYBDynamicValue& text) {
  if (!text.isString()) return std::nullopt;
  return NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter()->dateFromString(
      text.stringView());
}

}  // namespace

const NYBRecordClass& NYBIntraDay::staticClass() {
  using T = NYBIntraDay;
  static const NYBRecordClass intraDayClass(
      {std::string(records::kIntraDay.className),
       &NYBRecord::staticClass(),
       [] { return std::make_shared<T>(); },
       // The computed range and device come first, so that building from a
       // dictionary of all properties (copies, the archive) ends with the
       // stored values, sub-second parts of the dates included.
       NYBPropertyTable::of<T>()
           .computed("range", &T::range, &T::setRange)
           .computed("device", &T::device, &T::setDevice)
           .field("start", &T::start_)
           .field("end", &T::end_)
           .field("deviceSource", &T::deviceSource_)
           .field("entries", &T::entries_)
           .computed("type", &T::type, &T::setType)
           .computed("unit", &T::unit, &T::setUnit)
           .field("model", &T::model_)
           .field("manufacturer", &T::manufacturer_),
       intraDayKeyPaths(),
       {}});
  return intraDayClass;
}

NYBIntraDay::NYBIntraDay()
    : deviceSource_(""), entries_(NYBArray()), model_(""), manufacturer_("") {
  setActivityID(platform::newUUIDString());
}

NYBRecordType NYBIntraDay::recordType() const { return NYBRecordType(records::kIntraDay.type); }

NYBDynamicValue NYBIntraDay::type() const { return "steps"; }
void NYBIntraDay::setType(NYBDynamicValue type) { type_ = std::move(type); }
NYBDynamicValue NYBIntraDay::unit() const { return "count"; }
void NYBIntraDay::setUnit(NYBDynamicValue unit) { unit_ = std::move(unit); }

NYBDynamicValue NYBIntraDay::range() const {
  const auto& formatter = NYBFormatter::sharedFormatter().ISO8601DateTimeFormatter();
  NYBDictionary range;
  range.set("start", formatter->stringFromDate(start_.date()));
  range.set("end", formatter->stringFromDate(end_.date()));
  return range.empty() ? NYBDynamicValue() : NYBDynamicValue(std::move(range));
}

void NYBIntraDay::setRange(NYBDynamicValue range) {
  const NYBDictionary* dictionary = range.dictionary();
  start_ = dictionary != nullptr ? parsedUTC((*dictionary)["start"]) : std::nullopt;
  end_ = dictionary != nullptr ? parsedUTC((*dictionary)["end"]) : std::nullopt;
}

NYBDynamicValue NYBIntraDay::device() const {
  NYBDictionary device;
  device.set("id", deviceSource_);
  device.set("manufacturer", manufacturer_);
  device.set("model", model_);
  return device.empty() ? NYBDynamicValue() : NYBDynamicValue(std::move(device));
}

void NYBIntraDay::setDevice(NYBDynamicValue device) {
  const NYBDictionary* dictionary = device.dictionary();
  NYBDictionary none;
  const NYBDictionary& entries = dictionary != nullptr ? *dictionary : none;
  deviceSource_ = entries["id"];
  manufacturer_ = entries["manufacturer"];
  model_ = entries["model"];
}

void NYBIntraDay::addValue(double value, NYBDate startDate, NYBDate endDate) {
  const auto& formatter = NYBFormatter::sharedFormatter().ISO8601LocalDateTimeFormatter();
  NYBDictionary entry;
  entry.set("start", formatter->stringFromDate(startDate));
  entry.set("end", formatter->stringFromDate(endDate));
  entry.set("value", value);
  // A list nobody else holds grows in place; one that was handed out (a
  // copy, a snapshot being archived) is copied first and never changes.
  if (NYBArray* unshared = entries_.uniqueArray()) {
    unshared->append(std::move(entry));
    return;
  }
  const NYBArray* current = entries_.array();
  NYBArray entries;
  if (current != nullptr) {
    entries.reserve(current->size() * 2 + 1);
    for (const NYBDynamicValue& each : *current) entries.append(each);
  }
  entries.append(std::move(entry));
  entries_ = std::move(entries);
}

}  // namespace nyb
