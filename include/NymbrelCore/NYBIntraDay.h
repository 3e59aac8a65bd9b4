// NYBIntraDay: the record of an intraday step series: a time range, the device
// that counted, and data points, each a count with its own start and end.
// Record type 8.
//
// type and unit are always "steps" and "count" (their setters store a string
// that is never given back). range is {"start", "end"} in UTC
// ("2016-03-01T14:00:00+00:00") over start and end; device is {"id",
// "manufacturer", "model"} over deviceSource, manufacturer and model; each
// setter parses or copies the entries back. Data points are written in the
// device's local date-time form and kept in the order they were added. The
// plain initialiser gives the record a new UUID activityID, an empty list of
// data points and empty device fields.
//
// The key map is smaller than the other record types': it leaves out
// sourcePeripheral, lastUpdated, validated, recordID, extras and media, so an
// intraday document never carries them, and it sends the device dictionary
// under "device" only (there is no sourcePeripheral to clash with).
//
// A plain model value shared through std::shared_ptr and used from one thread
// at a time (see NYBRecord).
#pragma once

#include "NymbrelCore/NYBExport.h"

#include "NymbrelCore/NYBDate.h"
#include "NymbrelCore/NYBRecord.h"

namespace nyb {

class NYB_EXPORT NYBIntraDay : public NYBRecord {
  NYB_DECLARE_MODEL(NYBIntraDay, NYBRecordClass)
 public:
  // The record defaults, then a new UUID activityID, an empty entries list,
  // and deviceSource, model and manufacturer "".
  NYBIntraDay();

  // NYBRecordTypeIntraDay.
  NYBRecordType recordType() const override;

  // Dates.
  NYB_RECORD_FIELD(start, Start)
  NYB_RECORD_FIELD(end, End)
  NYB_RECORD_FIELD(deviceSource, DeviceSource)
  // An array of {"start": text, "end": text, "value": real}. JSON key
  // "data_points".
  NYB_RECORD_FIELD(entries, Entries)
  NYB_RECORD_FIELD(model, Model)
  NYB_RECORD_FIELD(manufacturer, Manufacturer)

  // Always "steps".
  NYBDynamicValue type() const;
  void setType(NYBDynamicValue type);
  // Always "count".
  NYBDynamicValue unit() const;
  void setUnit(NYBDynamicValue unit);
  // {"start", "end"}: start and end as UTC text (a date that is absent is left
  // out; absent when both are).
  NYBDynamicValue range() const;
  // Parses the dictionary's "start" and "end" into start and end; text that is
  // missing or does not parse leaves that date absent.
  void setRange(NYBDynamicValue range);
  // {"id": deviceSource, "manufacturer", "model"} (absent parts left out;
  // absent when all three are).
  NYBDynamicValue device() const;
  // Copies "id", "manufacturer" and "model"; a missing one makes its field
  // absent.
  void setDevice(NYBDynamicValue device);

  // Appends {"start", "end", "value"} to entries, the dates in local
  // date-time form. Neither sorted, merged nor checked against the range.
  void addValue(double value, NYBDate startDate, NYBDate endDate);

 private:
  NYBDynamicValue type_;
  NYBDynamicValue unit_;
};

}  // namespace nyb
