// Reads arbitrary bytes as JSON text; whatever reads must write, read back to
// an equal value and write again to the very same text.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "NymbrelCore/NYBJSONSerialization.h"

namespace {

[[noreturn]] void fail(const char* what, std::string_view text) {
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(text.size()), text.data());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using nyb::NYBJSONSerialization;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::shared_ptr<nyb::NYBError> error;
  const nyb::NYBDynamicValue value = NYBJSONSerialization::JSONObjectWithData(input, &error);
  if (value.isAbsent()) {
    if (!error || error->localizedDescription().empty()) fail("failure without an error", input);
    return 0;
  }
  if (!value.isArray() && !value.isDictionary()) fail("top level is not a container", input);
  if (!NYBJSONSerialization::isValidJSONObject(value)) fail("read value is not valid", input);
  const auto text = NYBJSONSerialization::dataWithJSONObject(value, &error);
  if (!text) fail("read value does not write", input);
  const nyb::NYBDynamicValue again = NYBJSONSerialization::JSONObjectWithData(*text, &error);
  if (!(again == value)) fail("written text reads back different", *text);
  const auto textAgain = NYBJSONSerialization::dataWithJSONObject(again);
  if (textAgain != text) fail("second writing differs", *text);
  return 0;
}
