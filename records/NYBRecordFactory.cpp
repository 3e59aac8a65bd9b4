// The record operations that need the record types or the peripheral model:
// the factories and the link between a record and its peripheral.

#include "NymbrelCore/NYBPeripheral.h"
#include "NymbrelCore/NYBRecord.h"
#include "records/RecordTypeList.h"

namespace nyb {

namespace {

constexpr const char* kPeripheralIDKey = "peripheral_id";
constexpr const char* kConnectionTypeKey = "connection_type";

// The peripheral class of that name, when a companion module registered one.
const NYBPeripheralClass* companionPeripheralClass(std::string_view name) {
  return dynamic_cast<const NYBPeripheralClass*>(NYBClass::classNamed(name));
}

}  // namespace

std::shared_ptr<NYBRecord> NYBRecordClass::newRecordWithType(NYBRecordType recordType) const {
  const records::RecordTypeDescription* description = records::describeRecordType(recordType);
  if (description == nullptr) return nullptr;
  // The class is found by the name its description gives; the record type
  // check keeps a host class registered under that name from standing in.
  const NYBClass* cls = NYBClass::classNamed(description->className);
  auto record = cls != nullptr ? std::dynamic_pointer_cast<NYBRecord>(cls->newInstance()) : nullptr;
  return record && record->recordType() == recordType ? record : nullptr;
}

std::shared_ptr<NYBRecord> NYBRecordClass::newRecordFromPeripheral(
    const std::shared_ptr<NYBPeripheral>& peripheral) const {
  return peripheral ? peripheral->record() : nullptr;
}

void NYBRecord::associatePeripheral(const std::shared_ptr<NYBPeripheral>& peripheral) {
  setAssociatedPeripheral(peripheral);
  NYBDynamicValue peripheralID;
  NYBDynamicValue connectionType;
  if (peripheral) {
    peripheralID = peripheral->peripheralID();
    connectionType = peripheral->classObject().connectionType();
  }
  setExtraValue(std::move(peripheralID), kPeripheralIDKey);
  setExtraValue(std::move(connectionType), kConnectionTypeKey);
}

std::shared_ptr<NYBPeripheral> NYBRecord::peripheral() {
  if (associatedPeripheral_.isPresent()) return associatedPeripheral_.objectAs<NYBPeripheral>();
  const NYBDictionary* extras = extras_.dictionary();
  if (extras == nullptr) return nullptr;
  const NYBDynamicValue* peripheralID = extras->find(kPeripheralIDKey);
  const NYBDynamicValue* connectionType = extras->find(kConnectionTypeKey);
  if (peripheralID == nullptr || connectionType == nullptr) return nullptr;

  // Each class is asked on its own; when both answer the same connection
  // type, the second one's answer is kept.
  auto id = static_cast<std::uint64_t>(peripheralID->integerValue());
  for (const char* name : {"NYBBluetoothPeripheral", "NYBOCRPeripheral"}) {
    const NYBPeripheralClass* cls = companionPeripheralClass(name);
    if (cls != nullptr && connectionType->isString() &&
        connectionType->stringView() == cls->connectionType()) {
      setAssociatedPeripheral(cls->peripheralForID(id));
    }
  }
  return associatedPeripheral_.objectAs<NYBPeripheral>();
}

}  // namespace nyb
