// The intraday record: a series of step counts over a day. Its class is
// NYBIntraDay, whose document is smaller than the others' and shaped by
// computed values ("range", "device"), so the class states its key map and
// property table itself; these fields are what an application or the tool
// fills.
#pragma once

#include "records/RecordTypeDescription.h"

namespace nyb::records {

inline constexpr FieldDescription kIntraDayFields[] = {
    {"start", "range.start", "start", FieldKind::DateTime, "start of the range"},
    {"end", "range.end", "end", FieldKind::DateTime, "end of the range"},
    {"point", "data_points", "point", FieldKind::DataPoint,
     "a step count over an interval (repeatable)"},
    {"deviceSource", "device.id", "device-source", FieldKind::Text,
     "the counting device's identifier"},
    {"manufacturer", "manufacturer", "manufacturer", FieldKind::Text, "its maker"},
    {"model", "model", "model", FieldKind::Text, "its model"},
};

inline constexpr RecordTypeDescription kIntraDay = {8,
                                                    "intraday",
                                                    "Intraday",
                                                    "NYBIntraDay",
                                                    "a series of step counts over a day",
                                                    kIntraDayFields,
                                                    CommonFields::Reduced};

}  // namespace nyb::records
