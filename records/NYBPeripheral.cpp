#include "NymbrelCore/NYBPeripheral.h"

#include <iterator>
#include <vector>

#include "NymbrelCore/NYBURL.h"
#include "platform/UUID.h"

namespace nyb {

namespace {

// Both directions ask the class that was asked for the transformer, so that a
// subclass's display names are the ones read and written.
std::shared_ptr<NYBValueTransformer> makeTypeTransformer(const NYBModelClass& receiver) {
  const auto& cls = static_cast<const NYBPeripheralClass&>(receiver);
  return NYBValueTransformer::transformerUsingForwardBlock(
      [&cls](const NYBDynamicValue& name) -> NYBDynamicValue {
        if (name.isString()) {
          for (std::uint64_t type = NYBPeripheralTypeThermometer;
               type <= NYBPeripheralTypePulseOximeter; ++type) {
            std::optional<std::string> candidate = cls.nameForType(NYBPeripheralType(type));
            if (candidate && *candidate == name.stringView()) return type;
          }
        }
        return std::uint64_t{NYBPeripheralTypeNone};
      },
      [&cls](const NYBDynamicValue& type) -> NYBDynamicValue {
        return cls.nameForType(NYBPeripheralType(type.integerValue()));
      });
}

std::shared_ptr<NYBValueTransformer> makeImageURLTransformer(const NYBModelClass&) {
  return NYBValueTransformer::transformerUsingForwardBlock(
      [](const NYBDynamicValue& text) -> NYBDynamicValue {
        if (!text.isString()) return {};
        return NYBURL::URLWithString(text.stringView());
      },
      [](const NYBDynamicValue& url) -> NYBDynamicValue {
        if (const NYBURL* u = url.url()) return u->absoluteString();
        return {};
      });
}

NYBPeripheralList filtered(NYBPeripheralList entries,
                           bool (*keep)(const NYBPeripheral&, std::uint64_t),
                           std::uint64_t argument) {
  std::erase_if(entries, [&](const std::shared_ptr<NYBPeripheral>& entry) {
    return !entry || !keep(*entry, argument);
  });
  return entries;
}

}  // namespace

// ---- NYBPeripheralClass ----------------------------------------------------

NYBPeripheralList NYBPeripheralClass::peripherals() const { return {}; }

NYBPeripheralList NYBPeripheralClass::supportedPeripherals() const {
  return filtered(
      peripherals(), [](const NYBPeripheral& p, std::uint64_t) { return !p.disabled(); }, 0);
}

std::shared_ptr<NYBPeripheral> NYBPeripheralClass::peripheralForID(
    std::uint64_t peripheralID) const {
  for (std::shared_ptr<NYBPeripheral>& entry : peripherals()) {
    if (entry && entry->peripheralID() == peripheralID) return std::move(entry);
  }
  return nullptr;
}

NYBPeripheralList NYBPeripheralClass::peripheralsOfType(NYBPeripheralType type) const {
  return filtered(
      supportedPeripherals(),
      [](const NYBPeripheral& p, std::uint64_t wanted) { return p.type() == wanted; }, type);
}

std::string NYBPeripheralClass::connectionType() const { return "Unknown"; }

std::optional<std::string> NYBPeripheralClass::nameForType(NYBPeripheralType type) const {
  switch (type) {
    case NYBPeripheralTypeNone:
      return "";
    case NYBPeripheralTypeThermometer:
      return "Thermometer";
    case NYBPeripheralTypeBloodPressure:
      return "Blood Pressure Monitor";
    case NYBPeripheralTypeHeartRate:
      return "Heart Rate Monitor";
    case NYBPeripheralTypeGlucose:
      return "Glucose Meter";
    case NYBPeripheralTypeWeightScale:
      return "Weight Scale";
    case NYBPeripheralTypePulseOximeter:
      return "Pulse Oximeter";
  }
  return std::nullopt;
}

NYBRecordType NYBPeripheralClass::recordTypeForPeripheralType(NYBPeripheralType type) const {
  // A six-row table for kinds 0 to 5; the pulse oximeter and every unknown
  // kind above it fall through to biometrics.
  static constexpr NYBRecordType kTable[] = {NYBRecordTypeNone,       NYBRecordTypeBiometrics,
                                             NYBRecordTypeBiometrics, NYBRecordTypeBiometrics,
                                             NYBRecordTypeDiabetes,   NYBRecordTypeWeight};
  return type < std::size(kTable) ? kTable[type] : NYBRecordTypeBiometrics;
}

NYBPeripheralList NYBPeripheralClass::peripheralsFromCatalogueEntries(
    const NYBArray& entries) const {
  NYBPeripheralList peripherals;
  peripherals.reserve(entries.size());
  for (const NYBDynamicValue& entry : entries) {
    if (!entry.isDictionary()) continue;
    if (auto peripheral = std::dynamic_pointer_cast<NYBPeripheral>(modelFromJSONObject(entry))) {
      peripherals.push_back(std::move(peripheral));
    }
  }
  return peripherals;
}

// ---- NYBPeripheral ---------------------------------------------------------

const NYBPeripheralClass& NYBPeripheral::staticClass() {
  static const NYBPeripheralClass peripheralClass(
      {"NYBPeripheral",
       &NYBModel::staticClass(),
       [] { return std::make_shared<NYBPeripheral>(); },
       NYBPropertyTable::of<NYBPeripheral>()
           .unsignedScalar("peripheralID", &NYBPeripheral::peripheralID_)
           .unsignedScalar("type", &NYBPeripheral::type_)
           .field("model", &NYBPeripheral::model_)
           .field("manufacturer", &NYBPeripheral::manufacturer_)
           .field("imageURL", &NYBPeripheral::imageURL_)
           .boolScalar("disabled", &NYBPeripheral::disabled_),
       NYBKeyMap{{"peripheralID", "ID"},
                 {"type", "Type"},
                 {"model", "Model"},
                 {"manufacturer", "Manufacturer"},
                 {"imageURL", "PeripheralImageURL"},
                 {"disabled", "Disabled"}},
       {{"typeTransformer", makeTypeTransformer},
        {"imageURLTransformer", makeImageURLTransformer}}});
  return peripheralClass;
}

std::string NYBPeripheral::name() const {
  return manufacturer_.description() + " " + model_.description();
}

std::shared_ptr<NYBRecord> NYBPeripheral::record() {
  std::shared_ptr<NYBRecord> record =
      NYBRecord::newRecordWithType(classObject().recordTypeForPeripheralType(type()));
  if (!record) return nullptr;
  record->setTimestamp(NYBDate::now());
  record->setActivityID(platform::newUUIDString());
  record->setValidated(true);
  std::shared_ptr<NYBObject> self = weak_from_this().lock();
  record->associatePeripheral(self ? std::static_pointer_cast<NYBPeripheral>(std::move(self))
                                   : copyAs<NYBPeripheral>());
  record->setOriginalSource(manufacturer_);
  record->setSourcePeripheral(model_);
  return record;
}

}  // namespace nyb
