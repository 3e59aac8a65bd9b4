// NYBKeyedUnarchiver: reads a keyed archive written by NYBKeyedArchiver.
//
// Values come back as the kinds they were written as. Objects are made only
// for registered classes that support keyed coding (an unknown or unsupported
// class name is damage, never an instance of something else). Nesting depth
// and every length are bounded, so damaged, truncated or hostile bytes give a
// failure, never a crash or a hang. One unarchiver is used by one thread.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <memory>
#include <string_view>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBError.h"

namespace nyb {

inline constexpr std::string_view kNYBInvalidUnarchiveOperationException =
    "NSInvalidUnarchiveOperationException";

class NYB_EXPORT NYBKeyedUnarchiver {
 public:
  // The root value of an archive. Damage raises an NYBException named
  // "NSInvalidUnarchiveOperationException" whose reason says what is wrong.
  static NYBDynamicValue unarchiveObjectWithData(const NYBData& data);
  // The same, reporting damage as an error (domain "NSCocoaErrorDomain", code
  // 4864) instead of raising; absent on failure.
  [[nodiscard]] static NYBDynamicValue unarchivedObjectWithData(const NYBData& data,
                                                                std::shared_ptr<NYBError>* error);

  // The value stored under a key of the object being decoded; absent when the
  // key is missing.
  NYBDynamicValue decodeObjectForKey(std::string_view key);
  bool containsValueForKey(std::string_view key) const;

  ~NYBKeyedUnarchiver();
  NYBKeyedUnarchiver(const NYBKeyedUnarchiver&) = delete;
  NYBKeyedUnarchiver& operator=(const NYBKeyedUnarchiver&) = delete;

  struct Impl;

 private:
  explicit NYBKeyedUnarchiver(Impl* impl);
  Impl* impl_;
  friend struct Impl;
};

}  // namespace nyb
