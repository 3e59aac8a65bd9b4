// The peripheral catalogue and the link between a record and its peripheral,
// through a companion class registered under a name records look up.

#include <gtest/gtest.h>

#include "NymbrelCore/NYBBiometrics.h"
#include "NymbrelCore/NYBDiabetes.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBPeripheral.h"
#include "NymbrelCore/NYBWeight.h"

namespace nyb {
namespace {

// Names its kinds in its own words, so its catalogue does too.
class BluetoothClass : public NYBPeripheralClass {
 public:
  using NYBPeripheralClass::NYBPeripheralClass;
  std::string connectionType() const override { return "Bluetooth LE"; }
  std::optional<std::string> nameForType(NYBPeripheralType type) const override {
    std::optional<std::string> name = NYBPeripheralClass::nameForType(type);
    return name ? "bt " + *name : name;
  }
  NYBPeripheralList peripherals() const override {
    return peripheralsFromCatalogueEntries(*NYBJSONSerialization::JSONObjectWithData(R"([
      {"ID":1,"Type":"bt Thermometer","Manufacturer":"Acme","Model":"T1","Disabled":false},
      {"ID":2,"Type":"bt Thermometer","Manufacturer":"Acme","Model":"T2","Disabled":true},
      {"ID":3,"Type":"bt Thermometer","Manufacturer":"Brio","Model":"T3"},
      {"ID":4,"Type":"bt Glucose Meter","Manufacturer":"Gluco","Model":"G1"},
      {"ID":5,"Type":"Glucose Meter","Manufacturer":"Gluco","Model":"G0"},
      {"ID":6,"Type":"bt Toaster","Manufacturer":"Acme","Model":"Z1"},
      "not an entry"])")
                                                .array());
  }
};

// Declares no key map: NYBPeripheral's is its.
class BluetoothPeripheral : public NYBPeripheral {
  NYB_DECLARE_MODEL(BluetoothPeripheral, NYBPeripheralClass)
};
const NYBPeripheralClass& BluetoothPeripheral::staticClass() {
  static const BluetoothClass cls({"NYBBluetoothPeripheral",
                                   &NYBPeripheral::staticClass(),
                                   [] { return std::make_shared<BluetoothPeripheral>(); },
                                   {},
                                   std::nullopt,
                                   {}});
  return cls;
}

std::vector<std::uint64_t> ids(const NYBPeripheralList& list) {
  std::vector<std::uint64_t> result;
  for (const auto& p : list) result.push_back(p->peripheralID());
  return result;
}

// Companion modules register their classes before records look them up.
[[maybe_unused]] const bool kRegistered = (BluetoothPeripheral::staticClass(), true);

TEST(Peripherals, TheClassAskedFiltersItsCatalogueNamesItsKindsAndFindsTheEntryOfARecord) {
  const NYBPeripheralClass& bluetooth = BluetoothPeripheral::staticClass();
  EXPECT_EQ((std::vector{ids(bluetooth.peripherals()), ids(bluetooth.supportedPeripherals()),
                         ids(bluetooth.peripheralsOfType(NYBPeripheralTypeThermometer)),
                         ids(bluetooth.peripheralsOfType(NYBPeripheralTypeNone))}),
            (std::vector<std::vector<std::uint64_t>>{
                {1, 2, 3, 4, 5, 6}, {1, 3, 4, 5, 6}, {1, 3}, {5, 6}}));
  // Disabled entries are still found by number.
  EXPECT_TRUE(bluetooth.peripheralForID(2) && bluetooth.peripheralForID(2)->disabled());
  EXPECT_FALSE(bluetooth.peripheralForID(99));

  // Type names are read (the base class's name is not the class's) and written by the class asked.
  EXPECT_EQ(bluetooth.peripheralForID(4)->type(), NYBPeripheralTypeGlucose);
  const NYBDynamicValue document = NYBJSONSerialization::JSONObjectWithData(
      R"({"ID":8,"Type":"bt Heart Rate Monitor","Model":"H1","Manufacturer":"Pulse",
      "PeripheralImageURL":"https://img.example/h1.png?size=2","Disabled":false})");
  auto heartRate = BluetoothPeripheral::modelFromJSONObject(document);
  EXPECT_EQ(heartRate->type(), NYBPeripheralTypeHeartRate);
  EXPECT_EQ(NYBDynamicValue(heartRate->JSONObject()), document);

  // Records are made for their kind, and find their entry again after JSON.
  const std::pair<std::uint64_t, const NYBClass&> kinds[] = {{1, NYBBiometrics::staticClass()},
                                                             {4, NYBDiabetes::staticClass()}};
  for (const auto& [id, recordClass] : kinds) {
    std::shared_ptr<NYBPeripheral> entry = bluetooth.peripheralForID(id);
    const NYBDate before = NYBDate::now();
    std::shared_ptr<NYBRecord> record = NYBRecord::newRecordFromPeripheral(entry);
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->isMemberOfClass(recordClass)) << record->className();
    EXPECT_EQ(NYBArray({record->originalSource(), record->sourcePeripheral(), record->validated()}),
              NYBArray({entry->manufacturer(), entry->model(), true}));
    EXPECT_EQ(record->activityID().stringView().size(), 36u);
    EXPECT_TRUE(record->timestamp().date() >= before &&
                record->timestamp().date() <= NYBDate::now());
    EXPECT_EQ(record->peripheral(), entry);
    const NYBDictionary& extras = *record->extras().dictionary();
    EXPECT_EQ(extras["peripheral_id"], NYBDynamicValue(id));
    EXPECT_EQ(extras["connection_type"], NYBDynamicValue("Bluetooth LE"));

    // JSON carries only the extras entries; the catalogue of the class that
    // answers the connection type gives the entry back, and the record keeps it.
    auto parsed = std::static_pointer_cast<NYBRecord>(
        record->classObject().modelFromJSONObject(record->JSONObject()));
    EXPECT_TRUE(parsed->associatedPeripheral().isAbsent());
    std::shared_ptr<NYBPeripheral> found = parsed->peripheral();
    ASSERT_TRUE(found);
    EXPECT_TRUE(&found->classObject() == &bluetooth && found->isEqual(*entry));
    EXPECT_EQ(parsed->peripheral(), found);
  }
  EXPECT_FALSE(bluetooth.peripheralForID(6)->record());  // a kind without a record type
  EXPECT_FALSE(NYBRecord::newRecordFromPeripheral(nullptr));

  // The base class names kinds in its own words and answers "Unknown"; associating nothing
  // removes the link.
  auto plain = NYBPeripheral::modelWithDictionary({});
  plain->setPeripheralID(7);
  plain->setType(NYBPeripheralTypeHeartRate);
  plain->setManufacturer("Pulse");
  plain->setModel("H1");
  EXPECT_EQ(plain->JSONObject()["Type"], NYBDynamicValue("Heart Rate Monitor"));
  EXPECT_EQ(plain->name(), "Pulse H1");
  NYBWeight weight;
  weight.setExtras({});
  weight.associatePeripheral(plain);
  EXPECT_EQ(weight.extras(),
            NYBDynamicValue(NYBDictionary{{"peripheral_id", 7u}, {"connection_type", "Unknown"}}));
  weight.associatePeripheral(nullptr);
  EXPECT_TRUE(weight.extras().isAbsent());
  EXPECT_FALSE(weight.peripheral());

  // A connection type that no present class answers, or a missing entry, finds nothing.
  for (const char* json : {R"({"extras":{"peripheral_id":1,"connection_type":"NFC"}})",
                           R"({"extras":{"peripheral_id":1}})",
                           R"({"extras":{"peripheral_id":42,"connection_type":"Bluetooth LE"}})"}) {
    auto record =
        NYBBiometrics::modelFromJSONObject(NYBJSONSerialization::JSONObjectWithData(json));
    EXPECT_FALSE(record->peripheral()) << json;
  }
}

}  // namespace
}  // namespace nyb
