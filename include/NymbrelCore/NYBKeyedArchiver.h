// NYBKeyedArchiver: writes a graph of dynamic values and model objects as a
// keyed archive (MessagePack).
//
// Every kind of dynamic value is written so that it reads back as the same
// kind; an object is written as its class name followed by the keyed values
// its encodeWithCoder() stores. Only objects whose class supports keyed coding
// can be archived. One archiver is used by one thread, for one archive.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb {

class NYB_EXPORT NYBKeyedArchiver {
 public:
  // The archive of a root value. Raises NYBInvalidArgumentException when the
  // root itself cannot be archived (failures inside a model's own entries are
  // caught and logged by the model).
  [[nodiscard]] static NYBData archivedDataWithRootObject(const NYBDynamicValue& root);
  // The same archive, into `bytes` (emptied first). Its capacity is kept, so
  // a caller that archives again and again can reuse one buffer rather than
  // have fresh memory mapped in for every archive.
  static void archiveRootObject(const NYBDynamicValue& root, std::vector<std::uint8_t>& bytes);

  // Stores a value under a key of the object being encoded. Raises
  // NYBInvalidArgumentException for a value that cannot be archived; the
  // archive is then left as if the call had not been made.
  void encodeObject(const NYBDynamicValue& value, std::string_view key);

  ~NYBKeyedArchiver();
  NYBKeyedArchiver(const NYBKeyedArchiver&) = delete;
  NYBKeyedArchiver& operator=(const NYBKeyedArchiver&) = delete;

  struct Impl;

 private:
  explicit NYBKeyedArchiver(Impl* impl);
  Impl* impl_;
  friend struct Impl;
};

}  // namespace nyb
