// NYBPeripheral: one kind of measuring device that readings can come from (a
// thermometer, a blood-pressure monitor, a glucose meter ...) as an entry of a
// peripheral catalogue, and NYBPeripheralClass, the class object that answers
// the catalogue queries.
//
// An entry has its catalogue number, its kind, make and model, an image URL and
// whether it is switched off. Entries are built from and written to the
// catalogue's entry dictionaries through the key map ("ID", "Type", "Model",
// "Manufacturer", "PeripheralImageURL", "Disabled"); "Type" holds the display
// name of the kind, read and written by the class that was asked, so a
// subclass's names take effect.
//
// This library has the base class only: its catalogue is empty and its
// connection type is "Unknown". Connection-specific subclasses live in
// companion modules and are found by name at run time (NYBBluetoothPeripheral,
// NYBOCRPeripheral). Such a subclass gives its class object a type derived from
// NYBPeripheralClass that overrides connectionType() and supplies its catalogue
// by overriding peripherals() (peripheralsFromCatalogueEntries() turns entry
// dictionaries into entries of the receiving class), and registers its class
// object by calling its staticClass() before records look it up. A subclass
// that declares no key map uses NYBPeripheral's.
//
// record() makes a new, pre-filled record of the right type for a reading from
// the device; the caller owns it.
//
// Entries are plain model values shared through std::shared_ptr and used from
// one thread at a time; the catalogue queries hand out new entries on every
// call. Class objects hold no mutable state: their operations may be called
// from any thread, provided a subclass's catalogue source allows it.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBRecord.h"

namespace nyb {

enum NYBPeripheralType : std::uint64_t {
  NYBPeripheralTypeNone = 0,
  NYBPeripheralTypeThermometer = 1,
  NYBPeripheralTypeBloodPressure = 2,
  NYBPeripheralTypeHeartRate = 3,
  NYBPeripheralTypeGlucose = 4,
  NYBPeripheralTypeWeightScale = 5,
  NYBPeripheralTypePulseOximeter = 6,
};

class NYBPeripheral;
using NYBPeripheralList = std::vector<std::shared_ptr<NYBPeripheral>>;

class NYB_EXPORT NYBPeripheralClass : public NYBModelClass {
 public:
  using NYBModelClass::NYBModelClass;

  // The whole catalogue, in catalogue order; empty here.
  virtual NYBPeripheralList peripherals() const;
  // The entries of peripherals() that are not disabled, in order.
  virtual NYBPeripheralList supportedPeripherals() const;
  // The first entry of peripherals(), disabled ones included, with that
  // number; null when there is none.
  virtual std::shared_ptr<NYBPeripheral> peripheralForID(std::uint64_t peripheralID) const;
  // The entries of supportedPeripherals() of that kind, in order.
  virtual NYBPeripheralList peripheralsOfType(NYBPeripheralType type) const;
  // How this class's devices connect; "Unknown" here. Records store it in
  // their extras ("connection_type") to find their peripheral again.
  virtual std::string connectionType() const;
  // "" for 0, "Thermometer", "Blood Pressure Monitor", "Heart Rate Monitor",
  // "Glucose Meter", "Weight Scale", "Pulse Oximeter" for 1 to 6; absent above.
  virtual std::optional<std::string> nameForType(NYBPeripheralType type) const;
  // 0 for 0; biometrics for 1, 2, 3 and anything above 5; diabetes for 4;
  // weight for 5.
  virtual NYBRecordType recordTypeForPeripheralType(NYBPeripheralType type) const;

  // Catalogue entry dictionaries made into entries of this class, in order,
  // through its key map and transformers; elements that are not dictionaries
  // are skipped.
  NYBPeripheralList peripheralsFromCatalogueEntries(const NYBArray& entries) const;
};

class NYB_EXPORT NYBPeripheral : public NYBModel {
  NYB_DECLARE_MODEL(NYBPeripheral, NYBPeripheralClass)
 public:
  // Everything 0, false or absent.
  NYBPeripheral() = default;

  // Class-level conveniences, forwarding to NYBPeripheral's class object (call
  // a subclass's staticClass() to dispatch on that class instead).
  static NYBPeripheralList peripherals() { return staticClass().peripherals(); }
  static NYBPeripheralList supportedPeripherals() { return staticClass().supportedPeripherals(); }
  static std::shared_ptr<NYBPeripheral> peripheralForID(std::uint64_t peripheralID) {
    return staticClass().peripheralForID(peripheralID);
  }
  static NYBPeripheralList peripheralsOfType(NYBPeripheralType type) {
    return staticClass().peripheralsOfType(type);
  }
  static std::string connectionType() { return staticClass().connectionType(); }
  static std::optional<std::string> nameForType(NYBPeripheralType type) {
    return staticClass().nameForType(type);
  }
  static NYBRecordType recordTypeForPeripheralType(NYBPeripheralType type) {
    return staticClass().recordTypeForPeripheralType(type);
  }
  // "Type": the display name to the kind (the first of kinds 1 to 6 whose
  // nameForType() equals the text, else 0) and back through nameForType().
  // "PeripheralImageURL": text to URL and back to its absolute string.
  static std::shared_ptr<NYBValueTransformer> typeTransformer() {
    return staticClass().valueTransformerForKey("type");
  }
  static std::shared_ptr<NYBValueTransformer> imageURLTransformer() {
    return staticClass().valueTransformerForKey("imageURL");
  }

  // ---- Fields --------------------------------------------------------------

  std::uint64_t peripheralID() const { return peripheralID_; }
  void setPeripheralID(std::uint64_t peripheralID) { peripheralID_ = peripheralID; }
  NYBPeripheralType type() const { return NYBPeripheralType(type_); }
  void setType(NYBPeripheralType type) { type_ = type; }
  const NYBDynamicValue& model() const { return model_; }
  void setModel(NYBDynamicValue model) { model_ = std::move(model); }
  const NYBDynamicValue& manufacturer() const { return manufacturer_; }
  void setManufacturer(NYBDynamicValue manufacturer) { manufacturer_ = std::move(manufacturer); }
  // A URL.
  const NYBDynamicValue& imageURL() const { return imageURL_; }
  void setImageURL(NYBDynamicValue imageURL) { imageURL_ = std::move(imageURL); }
  bool disabled() const { return disabled_; }
  void setDisabled(bool disabled) { disabled_ = disabled; }

  // "<manufacturer> <model>" ("(null)" for an absent part).
  std::string name() const;

  // A new record for a reading from this device: of the record type of its
  // kind (newRecordWithType()), with timestamp now, a new UUID activityID,
  // validated true, this peripheral associated, originalSource the
  // manufacturer and sourcePeripheral the model. Null when the kind has no
  // record type. The record refers to this very entry when it is held by a
  // std::shared_ptr, else to a copy.
  std::shared_ptr<NYBRecord> record();

 private:
  std::uint64_t peripheralID_ = 0;
  std::uint64_t type_ = 0;
  NYBDynamicValue model_;
  NYBDynamicValue manufacturer_;
  NYBDynamicValue imageURL_;
  bool disabled_ = false;
};

}  // namespace nyb
