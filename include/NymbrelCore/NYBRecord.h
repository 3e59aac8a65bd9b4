// NYBRecord: the base of every health record that the library sends to the
// service, and NYBRecordClass, the class object of every record class.
//
// A record holds the fields that all record types share (when and in which UTC
// offset the reading was taken, where it came from, the service's identifiers,
// validation, free-form extras and attached media). The plain initialiser
// fills in the source and the sending device's description. The record also
// offers extras editing (the comment lives inside the extras), media
// attachment, generic measurement setters, raw measurements kept in the units
// in which they were entered (extras "raw_data"), and unit conversion.
//
// The record types derive from NYBRecord, give their class object a type
// derived from NYBRecordClass, override recordType() and the three-argument
// setMeasurementValue() (adding `using NYBRecord::setMeasurementValue;` so the
// two-argument one stays visible), and state their whole key map, starting
// with commonKeyPaths(). NYBRecord itself has no key map.
//
// The record also makes records: newRecordWithType() one of the eight record
// types by its NYBRecordType, newRecordFromPeripheral() a pre-filled one for a
// reading from a catalogue peripheral (NYBPeripheral). A record remembers its
// peripheral in associatedPeripheral and, so that the link survives JSON and
// the archive, in the extras entries "peripheral_id" and "connection_type";
// peripheral() finds it again through the peripheral classes registered under
// the names NYBBluetoothPeripheral and NYBOCRPeripheral, when present.
//
// Records are plain model values shared through std::shared_ptr and used from
// one thread at a time. Class objects hold no mutable state: their operations
// may be called from any thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "NymbrelCore/NYBConstants.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBMeasurement.h"
#include "NymbrelCore/NYBMedia.h"
#include "NymbrelCore/NYBModel.h"

namespace nyb {

class NYBPeripheral;
class NYBRecord;

// Declares one plain optional field of a record type: the getter name(), the
// setter setName() and the private member name_ that the class's property
// table refers to.
#define NYB_RECORD_FIELD(name, Name)                                           \
 public:                                                                       \
  const ::nyb::NYBDynamicValue& name() const { return name##_; }               \
  void set##Name(::nyb::NYBDynamicValue value) { name##_ = std::move(value); } \
                                                                               \
 private:                                                                      \
  ::nyb::NYBDynamicValue name##_;                                              \
                                                                               \
 public:

enum NYBRecordType : std::uint64_t {
  NYBRecordTypeNone = 0,
  NYBRecordTypeBiometrics = 1,
  NYBRecordTypeDiabetes = 2,
  NYBRecordTypeWeight = 3,
  NYBRecordTypeRoutine = 4,
  NYBRecordTypeNutrition = 5,
  NYBRecordTypeFitness = 6,
  NYBRecordTypeSleep = 7,
  NYBRecordTypeIntraDay = 8,
};

// Unit 0 of each is the standard unit in which record fields are stored.
enum NYBWeightUnit : std::uint64_t {
  NYBWeightUnitKilograms = 0,
  NYBWeightUnitPounds = 1,
  NYBWeightUnitStones = 2,
};
enum NYBGlucoseUnit : std::uint64_t {
  NYBGlucoseUnitMgdL = 0,
  NYBGlucoseUnitMmolL = 1,
};
enum NYBTemperatureUnit : std::uint64_t {
  NYBTemperatureUnitCelsius = 0,
  NYBTemperatureUnitFahrenheit = 1,
};

class NYB_EXPORT NYBRecordClass : public NYBModelClass {
 public:
  using NYBModelClass::NYBModelClass;

  // "None", "Biometrics", "Diabetes", "Weight", "Routine", "Nutrition",
  // "Fitness", "Sleep", "Intraday" for 0 to 8; "Unknown" for other values.
  virtual std::string nameForRecordType(NYBRecordType recordType) const;

  // The value read as a real (absent reads as 0), converted to the standard
  // unit and from there to toUnit, in double precision, as a real number. A
  // unit unknown on either side gives 0. Converting to the same unit still
  // goes through the standard unit.
  virtual NYBDynamicValue convertWeightValue(const NYBDynamicValue& value, NYBWeightUnit fromUnit,
                                             NYBWeightUnit toUnit) const;
  virtual NYBDynamicValue convertTemperatureValue(const NYBDynamicValue& value,
                                                  NYBTemperatureUnit fromUnit,
                                                  NYBTemperatureUnit toUnit) const;
  virtual NYBDynamicValue convertGlucoseValue(const NYBDynamicValue& value, NYBGlucoseUnit fromUnit,
                                              NYBGlucoseUnit toUnit) const;

  // "kg", "lb", "st"; "C", "F"; "mg/dL", "mmol/L". Absent for other values
  // (kNYBNoUnitFlag included).
  virtual std::optional<std::string> unitStringForWeightUnit(NYBWeightUnit unit) const;
  virtual std::optional<std::string> unitStringForTemperatureUnit(NYBTemperatureUnit unit) const;
  virtual std::optional<std::string> unitStringForGlucoseUnit(NYBGlucoseUnit unit) const;

  // The device's hardware model identifier, read once per process.
  virtual std::string deviceModel() const;

  // A new record of the class of that type (NYBBiometrics for 1 ...
  // NYBIntraDay for 8) by its plain initialiser; null for 0 and unknown types.
  virtual std::shared_ptr<NYBRecord> newRecordWithType(NYBRecordType recordType) const;
  // The peripheral's record(): timestamp now, a new activityID, validated,
  // the peripheral associated, originalSource its manufacturer and
  // sourcePeripheral its model. Null for a null peripheral or one whose kind
  // has no record type.
  virtual std::shared_ptr<NYBRecord> newRecordFromPeripheral(
      const std::shared_ptr<NYBPeripheral>& peripheral) const;
};

class NYB_EXPORT NYBRecord : public NYBModel {
  NYB_DECLARE_MODEL(NYBRecord, NYBRecordClass)
 public:
  // The plain initialiser: source "nymbrelmobile", sourceName "NymbrelMobile"
  // and the five-entry device description in extras; nothing else is set.
  // Throws NYBInvalidArgumentException when the library version is missing
  // from the library's bundle information.
  NYBRecord();

  // The 13 key-map pairs that every record type repeats at the start of its
  // own key map, in order.
  static NYBKeyMap commonKeyPaths();

  // Class-level conveniences, forwarding to NYBRecord's class object (call a
  // record type's staticClass() to dispatch on that class instead).
  static std::string nameForRecordType(NYBRecordType recordType) {
    return staticClass().nameForRecordType(recordType);
  }
  static NYBDynamicValue convertWeightValue(const NYBDynamicValue& value, NYBWeightUnit fromUnit,
                                            NYBWeightUnit toUnit) {
    return staticClass().convertWeightValue(value, fromUnit, toUnit);
  }
  static NYBDynamicValue convertTemperatureValue(const NYBDynamicValue& value,
                                                 NYBTemperatureUnit fromUnit,
                                                 NYBTemperatureUnit toUnit) {
    return staticClass().convertTemperatureValue(value, fromUnit, toUnit);
  }
  static NYBDynamicValue convertGlucoseValue(const NYBDynamicValue& value, NYBGlucoseUnit fromUnit,
                                             NYBGlucoseUnit toUnit) {
    return staticClass().convertGlucoseValue(value, fromUnit, toUnit);
  }
  static std::optional<std::string> unitStringForWeightUnit(NYBWeightUnit unit) {
    return staticClass().unitStringForWeightUnit(unit);
  }
  static std::optional<std::string> unitStringForTemperatureUnit(NYBTemperatureUnit unit) {
    return staticClass().unitStringForTemperatureUnit(unit);
  }
  static std::optional<std::string> unitStringForGlucoseUnit(NYBGlucoseUnit unit) {
    return staticClass().unitStringForGlucoseUnit(unit);
  }
  static std::string deviceModel() { return staticClass().deviceModel(); }
  static std::shared_ptr<NYBRecord> newRecordWithType(NYBRecordType recordType) {
    return staticClass().newRecordWithType(recordType);
  }
  static std::shared_ptr<NYBRecord> newRecordFromPeripheral(
      const std::shared_ptr<NYBPeripheral>& peripheral) {
    return staticClass().newRecordFromPeripheral(peripheral);
  }
  // timestamp and lastUpdated: text read and written by the shared
  // ISO8601DateTimeFormatter (always written in UTC). media: forward, each
  // dictionary of an array becomes an NYBMedia (an empty array for absent);
  // reverse, always an empty array, so media never travel in a record's JSON.
  static std::shared_ptr<NYBValueTransformer> timestampTransformer() {
    return staticClass().valueTransformerForKey("timestamp");
  }
  static std::shared_ptr<NYBValueTransformer> lastUpdatedTransformer() {
    return staticClass().valueTransformerForKey("lastUpdated");
  }
  static std::shared_ptr<NYBValueTransformer> mediaTransformer() {
    return staticClass().valueTransformerForKey("media");
  }

  // NYBRecordTypeNone here; each record type answers its own.
  virtual NYBRecordType recordType() const;

  // ---- Fields --------------------------------------------------------------

  const NYBDynamicValue& timestamp() const { return timestamp_; }
  // Also sets utcOffset to the device's own offset at that instant ("+01:00"),
  // or absent for an absent date.
  void setTimestamp(NYBDynamicValue timestamp);
  const NYBDynamicValue& utcOffset() const { return utcOffset_; }
  void setUtcOffset(NYBDynamicValue utcOffset) { utcOffset_ = std::move(utcOffset); }
  const NYBDynamicValue& source() const { return source_; }
  void setSource(NYBDynamicValue source) { source_ = std::move(source); }
  const NYBDynamicValue& sourceName() const { return sourceName_; }
  void setSourceName(NYBDynamicValue sourceName) { sourceName_ = std::move(sourceName); }
  // For a peripheral reading: the peripheral's manufacturer.
  const NYBDynamicValue& originalSource() const { return originalSource_; }
  void setOriginalSource(NYBDynamicValue originalSource) {
    originalSource_ = std::move(originalSource);
  }
  const NYBDynamicValue& intermediarySource() const { return intermediarySource_; }
  void setIntermediarySource(NYBDynamicValue intermediarySource) {
    intermediarySource_ = std::move(intermediarySource);
  }
  // For a peripheral reading: the peripheral's model. JSON key "device".
  const NYBDynamicValue& sourcePeripheral() const { return sourcePeripheral_; }
  void setSourcePeripheral(NYBDynamicValue sourcePeripheral) {
    sourcePeripheral_ = std::move(sourcePeripheral);
  }
  const NYBDynamicValue& lastUpdated() const { return lastUpdated_; }
  void setLastUpdated(NYBDynamicValue lastUpdated) { lastUpdated_ = std::move(lastUpdated); }
  // A number holding a boolean.
  const NYBDynamicValue& validated() const { return validated_; }
  void setValidated(NYBDynamicValue validated) { validated_ = std::move(validated); }
  // The service's identifier of the record. JSON key "_id".
  const NYBDynamicValue& recordID() const { return recordID_; }
  void setRecordID(NYBDynamicValue recordID) { recordID_ = std::move(recordID); }
  // A dictionary with string keys.
  const NYBDynamicValue& extras() const { return extras_; }
  void setExtras(NYBDynamicValue extras) { extras_ = std::move(extras); }
  const NYBDynamicValue& activityID() const { return activityID_; }
  void setActivityID(NYBDynamicValue activityID) { activityID_ = std::move(activityID); }
  // An array of NYBMedia.
  const NYBDynamicValue& media() const { return media_; }
  void setMedia(NYBDynamicValue media) { media_ = std::move(media); }
  // The peripheral that took the reading; in no key map.
  const NYBDynamicValue& associatedPeripheral() const { return associatedPeripheral_; }
  void setAssociatedPeripheral(NYBDynamicValue associatedPeripheral) {
    associatedPeripheral_ = std::move(associatedPeripheral);
  }

  // ---- Extras and media ----------------------------------------------------

  // The extras entry "comment"; absent when there is none.
  NYBDynamicValue comment() const;
  // setExtraValue(comment, "comment").
  void setComment(NYBDynamicValue comment);
  // Sets (or, for absent, removes) one extras entry. Extras that end up empty
  // become absent. Extras that are not a dictionary are replaced.
  void setExtraValue(NYBDynamicValue value, std::string_view key);
  // Appends to media (a new array; duplicates are not checked). A null media
  // object raises NYBInvalidArgumentException.
  void addMedia(const std::shared_ptr<NYBMedia>& media);

  // ---- The peripheral that took the reading --------------------------------

  // Stores the peripheral in associatedPeripheral and writes its peripheralID
  // (extras "peripheral_id") and its class's connectionType (extras
  // "connection_type"); null removes both entries.
  void associatePeripheral(const std::shared_ptr<NYBPeripheral>& peripheral);
  // associatedPeripheral when set. Otherwise, when the extras hold both
  // "peripheral_id" and "connection_type", asks the registered classes
  // NYBBluetoothPeripheral, then NYBOCRPeripheral, whose connectionType equals
  // "connection_type" for the peripheral of that ID, and keeps what it finds
  // in associatedPeripheral. Null when nothing matches.
  std::shared_ptr<NYBPeripheral> peripheral();

  // ---- Measurements --------------------------------------------------------

  // Sets the property named field generically, its setter running. An unknown
  // field, or absent for a scalar, is caught and logged ("Exception setting
  // value for key: <field>. Exception: <reason>."); the record is unchanged.
  void setMeasurementValue(const NYBDynamicValue& value, std::string_view field);
  // Sets a unit-bearing field from a value in the given unit. Does nothing
  // here; the record types with such fields override it.
  virtual void setMeasurementValue(const NYBDynamicValue& value, std::uint64_t unit,
                                   std::string_view field);

  // extras["raw_data"]: field name to { "value": text, "unit": text }; an
  // empty dictionary when there is none.
  NYBDictionary rawData() const;
  // Stores the measurement's dictionary representation as the raw data of
  // field; a measurement without value or unit (or null) is ignored.
  void setRawMeasurement(const std::shared_ptr<NYBMeasurement>& measurement,
                         std::string_view field);
  // A new measurement from the raw data of field; never null (value and unit
  // are absent when the field has no raw data).
  std::shared_ptr<NYBMeasurement> rawMeasurementForField(std::string_view field) const;

 private:
  NYBDynamicValue timestamp_;
  NYBDynamicValue utcOffset_;
  NYBDynamicValue source_;
  NYBDynamicValue sourceName_;
  NYBDynamicValue originalSource_;
  NYBDynamicValue intermediarySource_;
  NYBDynamicValue sourcePeripheral_;
  NYBDynamicValue lastUpdated_;
  NYBDynamicValue validated_;
  NYBDynamicValue recordID_;
  NYBDynamicValue extras_;
  NYBDynamicValue activityID_;
  NYBDynamicValue media_;
  NYBDynamicValue associatedPeripheral_;
};

}  // namespace nyb
