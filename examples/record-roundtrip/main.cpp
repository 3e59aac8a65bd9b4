// Builds a weight record entered in pounds, prints the JSON document the
// service receives, and round-trips the record through the keyed archive.
// Exits 0 when the record comes back equal.
#include <NymbrelCore/NYBJSONSerialization.h>
#include <NymbrelCore/NYBKeyedArchiver.h>
#include <NymbrelCore/NYBKeyedUnarchiver.h>
#include <NymbrelCore/NYBWeight.h>

#include <iostream>

int main() {
  using namespace nyb;

  auto weight = std::make_shared<NYBWeight>();
  weight->setTimestamp(NYBDate::now());
  weight->setWeight(176.4, NYBWeightUnitPounds);  // kept as entered, stored in kilograms
  weight->setComment("after the morning run");

  std::shared_ptr<NYBError> error;
  auto json = NYBJSONSerialization::dataWithJSONObject(weight->JSONObject(), &error);
  if (!json) {
    std::cerr << "cannot write JSON: " << error->localizedDescription() << "\n";
    return 1;
  }
  std::cout << *json << "\n";

  NYBData archive = NYBKeyedArchiver::archivedDataWithRootObject(weight);
  auto restored =
      NYBKeyedUnarchiver::unarchivedObjectWithData(archive, &error).objectAs<NYBWeight>();
  if (!restored || !restored->isEqual(*weight)) {
    std::cerr << "the archived record did not come back equal\n";
    return 1;
  }
  std::cout << "archived " << archive.length() << " bytes; the record came back equal ("
            << restored->weightWithUnit(NYBWeightUnitPounds).description()
            << " lb = " << restored->weight().description() << " kg)\n";
  return 0;
}
