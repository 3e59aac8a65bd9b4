// The platform's bracketed description of dictionaries and arrays, with nested
// containers indented by four blanks a level:
//   {
//       key = value;
//       "two words" = (
//           1,
//           2
//       );
//   }
#pragma once

#include <string>

namespace nyb {
class NYBArray;
class NYBDictionary;
class NYBDynamicValue;
}  // namespace nyb

namespace nyb::describe {

void dictionary(const NYBDictionary& dictionary, int level, std::string& out);
void array(const NYBArray& array, int level, std::string& out);
void value(const NYBDynamicValue& value, int level, std::string& out);

}  // namespace nyb::describe
