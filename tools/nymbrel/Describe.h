// Short human-readable texts about records, errors and JSON values, for the
// tool's output.
#pragma once

#include <NymbrelCore/NYBDynamicValue.h>
#include <NymbrelCore/NYBError.h>
#include <NymbrelCore/NYBRecord.h>

#include <string>

namespace nymbrel {

// The record type's collection name ("weight"), "record" when unknown.
std::string recordTypeName(const nyb::NYBRecord& record);
// "weight record 0F6C2A8E-..." (its activity ID), or "weight record" without one.
std::string recordLabel(const nyb::NYBRecord& record);
// The type's own fields that the record's document holds, with the stored
// unit and the value as entered: "weight 74.98 kg (entered 165.3 lb), bmi 23.1".
std::string recordValues(const nyb::NYBRecord& record);
// The error's text, with its HTTP status or domain and code when the text
// does not already say it.
std::string errorText(const nyb::NYBError& error);

// JSON text of a value: compact, or indented by two spaces per level.
std::string compactJSON(const nyb::NYBDynamicValue& value);
std::string prettyJSON(const nyb::NYBDynamicValue& value);

}  // namespace nymbrel
