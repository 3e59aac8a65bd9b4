// The keyed unarchiver: MessagePack (layout in ArchiveFormat.h) back to dynamic
// values and model objects.
//
// The reader walks the bytes itself rather than through a generic MessagePack
// object tree, so that nothing is allocated for a length before the bytes that
// length promises have been seen to exist. Each container's element count is
// checked against the bytes left, counting the elements that enclosing
// containers still owe (each element takes at least one byte), so reserving a
// container's declared size never reserves more than the input can fill.
// Nesting is bounded by archive::kMaxDepth; every damage raises an NYBException
// named kNYBInvalidUnarchiveOperationException.
//
// An object's keyed entries are read first, onto a stack shared by the whole
// decode; the object is then made by its class object's newWithCoder() with an
// unarchiver that answers from those entries.
#include "NymbrelCore/NYBKeyedUnarchiver.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBObject.h"
#include "NymbrelCore/NYBURL.h"
#include "model/ArchiveElements.h"
#include "model/ArchiveFormat.h"

namespace nyb {

namespace {

// Dictionaries up to this size keep their key hashes on the stack.
constexpr std::size_t kInlineKeyHashes = 16;
// Objects up to this size look for repeated keys pairwise; larger ones sort.
constexpr std::size_t kLinearKeyCheckLimit = 32;
constexpr std::uint32_t kDropped = std::numeric_limits<std::uint32_t>::max();

struct ObjectEntry {
  std::string_view key;
  NYBDynamicValue value;
};

class Decoder {
 public:
  // `depth`: the containers the bytes sit in. With `deferred`, the array the
  // root object stores under `deferredKey` is checked and left encoded there.
  Decoder(const std::uint8_t* bytes, std::size_t length, std::size_t depth = 0,
          archive::DeferredArchive* deferred = nullptr, std::string_view deferredKey = {})
      : begin_(bytes),
        p_(bytes),
        end_(bytes + length),
        depth_(depth),
        deferred_(deferred),
        deferredKey_(deferredKey) {}

  NYBDynamicValue readArchive();
  // One value that must fill the bytes.
  NYBDynamicValue readWhole() {
    NYBDynamicValue value = readValue();
    if (p_ != end_) damage("unexpected bytes after the value");
    return value;
  }

  // The keyed entries of the objects being decoded, innermost last.
  std::vector<ObjectEntry> entries;

 private:
  [[noreturn]] void damage(const std::string& what) const {
    throw NYBException(
        std::string(kNYBInvalidUnarchiveOperationException),
        "*** The archive is damaged at byte " + std::to_string(p_ - begin_) + ": " + what);
  }

  std::size_t remaining() const { return static_cast<std::size_t>(end_ - p_); }
  void need(std::size_t count) const {
    if (count > remaining()) damage("it ends before the " + std::to_string(count) + " bytes due");
  }
  std::uint64_t readBigEndian(unsigned byteCount) {
    need(byteCount);
    std::uint64_t value = 0;
    for (unsigned i = 0; i < byteCount; ++i) value = (value << 8) | *p_++;
    return value;
  }
  std::string_view readBytes(std::size_t count) {
    need(count);
    std::string_view bytes(reinterpret_cast<const char*>(p_), count);
    p_ += count;
    return bytes;
  }

  void enter() {
    if (++depth_ > archive::kMaxDepth) {
      damage("values are nested more than " + std::to_string(archive::kMaxDepth) + " deep");
    }
  }
  void leave() { --depth_; }

  // Accounts for a container of `count` elements; each must still fit in the
  // bytes left beside the elements enclosing containers still owe.
  void declare(std::uint64_t count) {
    if (count > remaining() || pending_ + count > remaining()) {
      damage("a container of " + std::to_string(count) + " elements cannot fit in the " +
             std::to_string(remaining()) + " bytes left");
    }
    pending_ += count;
  }
  void beginElement() { --pending_; }

  NYBDynamicValue readValue();
  NYBDynamicValue readArray(std::uint32_t count);
  NYBDynamicValue readDictionary(std::uint32_t count);
  NYBDynamicValue readExt(std::int8_t type, std::uint32_t length);
  NYBDynamicValue readObject(const std::uint8_t* payloadEnd);
  // An object's class name and keyed entries, within its payload: entry(key)
  // reads each value.
  template <typename Entry>
  const NYBClass& readObjectPayload(const std::uint8_t* payloadEnd, Entry&& entry);
  const NYBClass& readClass();
  void dropRepeatedKeys(std::size_t begin);
  // Whether the next value is an array, and if so its element count, read.
  bool readArrayHeader(std::uint32_t& count);
  void readDeferredArray(std::uint32_t count);
  // Checks one value as readValue() would, building nothing; the class of an
  // object, else null.
  const NYBClass* skipValue();
  void skipContainer(std::uint64_t elements);
  const NYBClass* skipExt(std::int8_t type, std::uint32_t length);
  std::string_view readString();
  std::uint32_t readMapHeader();

  const std::uint8_t* begin_;
  const std::uint8_t* p_;
  const std::uint8_t* end_;
  std::size_t depth_ = 0;
  std::uint64_t pending_ = 0;
  archive::DeferredArchive* deferred_;
  std::string_view deferredKey_;
};

NYBDynamicValue Decoder::readArchive() {
  if (remaining() < archive::kHeaderSize ||
      !std::equal(std::begin(archive::kMagic), std::end(archive::kMagic), p_)) {
    damage("it is not a keyed archive");
  }
  p_ += sizeof(archive::kMagic);
  if (*p_ != archive::kVersion) damage("unsupported archive version " + std::to_string(*p_));
  ++p_;
  static constexpr std::uint8_t kAbsent[] = {archive::kExt8, 0,
                                             static_cast<std::uint8_t>(archive::kAbsentRoot)};
  if (std::equal(p_, end_, std::begin(kAbsent), std::end(kAbsent))) return {};
  NYBDynamicValue root = readValue();
  if (p_ != end_) damage("unexpected bytes after the root value");
  return root;
}

NYBDynamicValue Decoder::readValue() {
  need(1);
  const std::uint8_t format = *p_++;
  if (format <= 0x7f) return std::int64_t{format};
  if (format >= 0xe0) return std::int64_t{static_cast<std::int8_t>(format)};
  if (format <= 0x8f) return readDictionary(format & 0x0f);
  if (format <= 0x9f) return readArray(format & 0x0f);
  if (format <= 0xbf) return NYBDynamicValue(readBytes(format & 0x1f));
  switch (format) {
    case 0xc0:
      return NYBDynamicValue::null();
    case 0xc2:
      return false;
    case 0xc3:
      return true;
    case 0xc4:
    case 0xc5:
    case 0xc6: {
      const auto length = readBigEndian(1u << (format - 0xc4));
      const std::string_view bytes = readBytes(length);
      return NYBData(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    }
    case 0xc7:
    case 0xc8:
    case 0xc9: {
      const auto length = static_cast<std::uint32_t>(readBigEndian(1u << (format - 0xc7)));
      const auto type = static_cast<std::int8_t>(readBigEndian(1));
      return readExt(type, length);
    }
    case 0xca:
      return double{std::bit_cast<float>(static_cast<std::uint32_t>(readBigEndian(4)))};
    case 0xcb:
      return std::bit_cast<double>(readBigEndian(8));
    case 0xcc:
    case 0xcd:
    case 0xce:
    case 0xcf: {
      const std::uint64_t value = readBigEndian(1u << (format - 0xcc));
      if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        damage("an integer is out of range");
      }
      return static_cast<std::int64_t>(value);
    }
    case 0xd0:
      return std::int64_t{static_cast<std::int8_t>(readBigEndian(1))};
    case 0xd1:
      return std::int64_t{static_cast<std::int16_t>(readBigEndian(2))};
    case 0xd2:
      return std::int64_t{static_cast<std::int32_t>(readBigEndian(4))};
    case 0xd3:
      return static_cast<std::int64_t>(readBigEndian(8));
    case 0xd4:
    case 0xd5:
    case 0xd6:
    case 0xd7:
    case 0xd8: {
      const auto type = static_cast<std::int8_t>(readBigEndian(1));
      return readExt(type, 1u << (format - 0xd4));
    }
    case 0xd9:
    case 0xda:
    case 0xdb:
      return NYBDynamicValue(readBytes(readBigEndian(1u << (format - 0xd9))));
    case 0xdc:
    case 0xdd:
      return readArray(static_cast<std::uint32_t>(readBigEndian(format == 0xdc ? 2 : 4)));
    case 0xde:
    case 0xdf:
      return readDictionary(static_cast<std::uint32_t>(readBigEndian(format == 0xde ? 2 : 4)));
    default:
      --p_;
      damage("invalid format byte");
  }
}

NYBDynamicValue Decoder::readArray(std::uint32_t count) {
  enter();
  declare(count);
  std::vector<NYBDynamicValue> elements;
  elements.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    beginElement();
    elements.push_back(readValue());
  }
  leave();
  return NYBArray(std::move(elements));
}

NYBDynamicValue Decoder::readDictionary(std::uint32_t count) {
  enter();
  declare(std::uint64_t{count} * 2);
  NYBDictionary dictionary;
  dictionary.reserve(count);
  // Key hashes, so that keys are compared for equality only when their hashes
  // match: comparing deeply nested keys costs far more than hashing them.
  std::size_t inlineHashes[kInlineKeyHashes];
  std::vector<std::size_t> heapHashes;
  std::size_t* hashes = inlineHashes;
  if (count > kInlineKeyHashes) {
    heapHashes.resize(count);
    hashes = heapHashes.data();
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    beginElement();
    NYBDynamicValue key = readValue();
    beginElement();
    hashes[i] = key.hash();
    dictionary.append(std::move(key), readValue());
  }
  leave();
  if (count < 2) return dictionary;

  // A written dictionary has no repeated keys, but damaged bytes may: the key
  // keeps its first place and its last value, as NYBDictionary::set() does.
  const auto entries = dictionary.begin();
  std::vector<std::uint32_t> replacedBy;  // per entry: the entry whose value it takes, or kDropped
  // Whether entry `later` repeats the earlier entry `first`; if so, records it.
  auto repeats = [&](std::uint32_t first, std::uint32_t later) {
    if (hashes[first] != hashes[later] || (!replacedBy.empty() && replacedBy[first] == kDropped) ||
        !(entries[first].first == entries[later].first)) {
      return false;
    }
    if (replacedBy.empty()) {
      replacedBy.resize(count);
      for (std::uint32_t i = 0; i < count; ++i) replacedBy[i] = i;
    }
    replacedBy[first] = later;
    replacedBy[later] = kDropped;
    return true;
  };
  if (count <= kInlineKeyHashes) {
    for (std::uint32_t later = 1; later < count; ++later) {
      for (std::uint32_t first = 0; first < later && !repeats(first, later); ++first) {
      }
    }
  } else {
    // Entries ordered by hash, then by position; repeats lie within one run.
    std::vector<std::uint32_t> order(count);
    for (std::uint32_t i = 0; i < count; ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
      return hashes[a] != hashes[b] ? hashes[a] < hashes[b] : a < b;
    });
    for (std::size_t run = 0; run < count;) {
      std::size_t runEnd = run + 1;
      while (runEnd < count && hashes[order[runEnd]] == hashes[order[run]]) ++runEnd;
      for (std::size_t later = run + 1; later < runEnd; ++later) {
        for (std::size_t first = run; first < later && !repeats(order[first], order[later]);
             ++first) {
        }
      }
      run = runEnd;
    }
  }
  if (replacedBy.empty()) return dictionary;
  NYBDictionary deduplicated;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (replacedBy[i] != kDropped)
      deduplicated.append(entries[i].first, entries[replacedBy[i]].second);
  }
  return deduplicated;
}

std::string_view Decoder::readString() {
  need(1);
  const std::uint8_t format = *p_;
  if (format >= 0xa0 && format <= 0xbf) {
    ++p_;
    return readBytes(format & 0x1f);
  }
  if (format >= 0xd9 && format <= 0xdb) {
    ++p_;
    return readBytes(readBigEndian(1u << (format - 0xd9)));
  }
  damage("a string was expected");
}

std::uint32_t Decoder::readMapHeader() {
  need(1);
  const std::uint8_t format = *p_;
  if (format >= 0x80 && format <= 0x8f) {
    ++p_;
    return format & 0x0f;
  }
  if (format == 0xde || format == 0xdf) {
    ++p_;
    return static_cast<std::uint32_t>(readBigEndian(format == 0xde ? 2 : 4));
  }
  damage("a map was expected");
}

NYBDynamicValue Decoder::readExt(std::int8_t type, std::uint32_t length) {
  need(length);
  switch (type) {
    case archive::kUnsigned:
      if (length != 1 && length != 2 && length != 4 && length != 8) {
        damage("an unsigned number of " + std::to_string(length) + " bytes");
      }
      return readBigEndian(length);
    case archive::kDecimal: {
      if (length > archive::kMaxDecimalTextLength) damage("a decimal text is too long");
      const std::string_view text = readBytes(length);
      NYBDecimal decimal = NYBDecimal::fromString(text);
      if (decimal.isNaN() && text != "NaN") damage("a decimal text is not a number");
      return decimal;
    }
    case archive::kDate:
      if (length != 8) damage("a date of " + std::to_string(length) + " bytes");
      return NYBDate(std::bit_cast<double>(readBigEndian(8)));
    case archive::kURL: {
      std::optional<NYBURL> url = NYBURL::URLWithString(readBytes(length));
      if (!url) damage("a URL text is not a URL");
      return std::move(*url);
    }
    case archive::kObject:
      return readObject(p_ + length);
    case archive::kAbsentRoot:
      damage("an absent-root marker that is not the whole archive");
    default:
      damage("unknown extension type " + std::to_string(type));
  }
}

}  // namespace

struct NYBKeyedUnarchiver::Impl {
  std::vector<ObjectEntry>& entries;
  std::size_t begin;
  std::size_t end;
  // Where the next lookup starts: objects ask for their keys in the order they
  // stored them, so each lookup usually succeeds at its first comparison.
  std::size_t next;

  const ObjectEntry* find(std::string_view key) {
    for (std::size_t i = next; i < end; ++i) {
      if (entries[i].key == key) {
        next = i + 1;
        return &entries[i];
      }
    }
    for (std::size_t i = begin; i < next; ++i) {
      if (entries[i].key == key) {
        next = i + 1;
        return &entries[i];
      }
    }
    return nullptr;
  }

  static std::shared_ptr<NYBObject> make(const NYBClass& classObject,
                                         std::vector<ObjectEntry>& entries, std::size_t begin) {
    Impl impl{entries, begin, entries.size(), begin};
    NYBKeyedUnarchiver coder(&impl);
    return classObject.newWithCoder(coder);
  }
};

namespace {

// A written object has no repeated keys, but damaged bytes may: the last entry
// of a key is the one kept.
void Decoder::dropRepeatedKeys(std::size_t begin) {
  const std::size_t count = entries.size() - begin;
  std::vector<bool> dropped;
  auto drop = [&](std::size_t index) {
    if (dropped.empty()) dropped.resize(count);
    dropped[index - begin] = true;
  };
  if (count <= kLinearKeyCheckLimit) {
    for (std::size_t i = begin; i < entries.size(); ++i) {
      for (std::size_t later = i + 1; later < entries.size(); ++later) {
        if (entries[i].key == entries[later].key) {
          drop(i);
          break;
        }
      }
    }
  } else {
    std::vector<std::size_t> order(count);
    for (std::size_t i = 0; i < count; ++i) order[i] = begin + i;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      return entries[a].key != entries[b].key ? entries[a].key < entries[b].key : a < b;
    });
    for (std::size_t i = 0; i + 1 < count; ++i) {
      if (entries[order[i]].key == entries[order[i + 1]].key) drop(order[i]);
    }
  }
  if (dropped.empty()) return;
  std::size_t kept = begin;
  for (std::size_t i = begin; i < entries.size(); ++i) {
    if (!dropped[i - begin]) entries[kept++] = std::move(entries[i]);
  }
  entries.resize(kept);
}

const NYBClass& Decoder::readClass() {
  const std::string_view className = readString();
  if (className.empty() || className.size() > archive::kMaxClassNameLength) {
    damage("a class name of " + std::to_string(className.size()) + " bytes");
  }
  const NYBClass* classObject = NYBClass::classNamed(className);
  if (classObject == nullptr) damage("unknown class \"" + std::string(className) + "\"");
  if (!classObject->supportsSecureCoding()) {
    damage("class \"" + std::string(className) + "\" does not support keyed coding");
  }
  return *classObject;
}

bool Decoder::readArrayHeader(std::uint32_t& count) {
  need(1);
  const std::uint8_t format = *p_;
  if (format >= 0x90 && format <= 0x9f) {
    ++p_;
    count = format & 0x0f;
    return true;
  }
  if (format == 0xdc || format == 0xdd) {
    ++p_;
    count = static_cast<std::uint32_t>(readBigEndian(format == 0xdc ? 2 : 4));
    return true;
  }
  return false;
}

void Decoder::readDeferredArray(std::uint32_t count) {
  enter();
  declare(count);
  // A repeated key: the last one counts, as for any other entry.
  *deferred_ = {};
  deferred_->deferred = true;
  deferred_->elements.reserve(count);
  deferred_->classes.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    beginElement();
    const std::uint8_t* start = p_;
    deferred_->classes.push_back(skipValue());
    deferred_->elements.emplace_back(reinterpret_cast<const char*>(start),
                                     static_cast<std::size_t>(p_ - start));
  }
  leave();
}

void Decoder::skipContainer(std::uint64_t elements) {
  enter();
  declare(elements);
  for (std::uint64_t i = 0; i < elements; ++i) {
    beginElement();
    skipValue();
  }
  leave();
}

const NYBClass* Decoder::skipValue() {
  need(1);
  const std::uint8_t format = *p_++;
  if (format <= 0x7f || format >= 0xe0) return nullptr;
  if (format <= 0x8f) {
    skipContainer(std::uint64_t{format & 0x0fu} * 2);
  } else if (format <= 0x9f) {
    skipContainer(format & 0x0f);
  } else if (format <= 0xbf) {
    readBytes(format & 0x1f);
  } else {
    switch (format) {
      case 0xc0:
      case 0xc2:
      case 0xc3:
        break;
      case 0xc4:
      case 0xc5:
      case 0xc6:
        readBytes(readBigEndian(1u << (format - 0xc4)));
        break;
      case 0xc7:
      case 0xc8:
      case 0xc9: {
        const auto length = static_cast<std::uint32_t>(readBigEndian(1u << (format - 0xc7)));
        return skipExt(static_cast<std::int8_t>(readBigEndian(1)), length);
      }
      case 0xca:
        readBigEndian(4);
        break;
      case 0xcb:
        readBigEndian(8);
        break;
      case 0xcc:
      case 0xcd:
      case 0xce:
      case 0xcf:
        if (readBigEndian(1u << (format - 0xcc)) >
            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
          damage("an integer is out of range");
        }
        break;
      case 0xd0:
      case 0xd1:
      case 0xd2:
      case 0xd3:
        readBigEndian(1u << (format - 0xd0));
        break;
      case 0xd4:
      case 0xd5:
      case 0xd6:
      case 0xd7:
      case 0xd8:
        return skipExt(static_cast<std::int8_t>(readBigEndian(1)), 1u << (format - 0xd4));
      case 0xd9:
      case 0xda:
      case 0xdb:
        readBytes(readBigEndian(1u << (format - 0xd9)));
        break;
      case 0xdc:
      case 0xdd:
        skipContainer(readBigEndian(format == 0xdc ? 2 : 4));
        break;
      case 0xde:
      case 0xdf:
        skipContainer(readBigEndian(format == 0xde ? 2 : 4) * 2);
        break;
      default:
        --p_;
        damage("invalid format byte");
    }
  }
  return nullptr;
}

const NYBClass* Decoder::skipExt(std::int8_t type, std::uint32_t length) {
  if (type != archive::kObject) {
    // The other kinds are small and checked by building them.
    readExt(type, length);
    return nullptr;
  }
  need(length);
  enter();
  const NYBClass& classObject =
      readObjectPayload(p_ + length, [this](std::string_view) { skipValue(); });
  leave();
  return &classObject;
}

template <typename Entry>
const NYBClass& Decoder::readObjectPayload(const std::uint8_t* payloadEnd, Entry&& entry) {
  const std::uint8_t* const outerEnd = end_;
  const std::uint64_t outerPending = pending_;
  end_ = payloadEnd;
  pending_ = 0;
  const NYBClass& classObject = readClass();
  const std::uint32_t count = readMapHeader();
  declare(std::uint64_t{count} * 2);
  for (std::uint32_t i = 0; i < count; ++i) {
    beginElement();
    const std::string_view key = readString();
    beginElement();
    entry(key);
  }
  if (p_ != end_) damage("unexpected bytes inside an object of class " + classObject.name());
  end_ = outerEnd;
  pending_ = outerPending;
  return classObject;
}

NYBDynamicValue Decoder::readObject(const std::uint8_t* payloadEnd) {
  enter();
  const std::size_t begin = entries.size();
  const NYBClass* classObject = &readObjectPayload(payloadEnd, [&](std::string_view key) {
    const bool deferring = deferred_ != nullptr && depth_ == 1 && key == deferredKey_;
    std::uint32_t elements = 0;
    if (deferring && readArrayHeader(elements)) {
      readDeferredArray(elements);
      return;
    }
    if (deferring) *deferred_ = {};
    entries.push_back({key, readValue()});
  });
  dropRepeatedKeys(begin);

  std::shared_ptr<NYBObject> object;
  try {
    object = NYBKeyedUnarchiver::Impl::make(*classObject, entries, begin);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    damage("an instance of " + classObject->name() + " could not be decoded: " + failure.what());
  }
  entries.resize(begin);
  if (object == nullptr) damage("class " + classObject->name() + " made no instance");
  leave();
  return object;
}

std::shared_ptr<NYBError> unarchiveError(const std::string& reason) {
  return NYBError::errorWithDomain(
      "NSCocoaErrorDomain", 4864,
      NYBDictionary{
          {NYBDynamicValue(kNYBLocalizedDescriptionKey),
           NYBDynamicValue("The data couldn’t be read because it isn’t in the correct format.")},
          {NYBDynamicValue("NSDebugDescription"), NYBDynamicValue(reason)}});
}

}  // namespace

namespace archive {

DeferredArchive unarchiveDeferring(const NYBData& data, std::string_view key) {
  DeferredArchive result;
  Decoder decoder(data.bytes(), data.length(), 0, &result, key);
  result.root = decoder.readArchive();
  return result;
}

NYBDynamicValue decodeElement(std::string_view bytes) {
  // Inside the root object and its array.
  Decoder decoder(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), 2);
  return decoder.readWhole();
}

}  // namespace archive

NYBKeyedUnarchiver::NYBKeyedUnarchiver(Impl* impl) : impl_(impl) {}

// The Impl lives on the stack of whoever made the unarchiver.
NYBKeyedUnarchiver::~NYBKeyedUnarchiver() = default;

NYBDynamicValue NYBKeyedUnarchiver::unarchiveObjectWithData(const NYBData& data) {
  Decoder decoder(data.bytes(), data.length());
  return decoder.readArchive();
}

NYBDynamicValue NYBKeyedUnarchiver::unarchivedObjectWithData(const NYBData& data,
                                                             std::shared_ptr<NYBError>* error) {
  try {
    NYBDynamicValue root = unarchiveObjectWithData(data);
    if (error != nullptr) *error = nullptr;
    return root;
  } catch (const NYBException& failure) {
    if (error != nullptr) *error = unarchiveError(failure.reason());
    return {};
  }
}

NYBDynamicValue NYBKeyedUnarchiver::decodeObjectForKey(std::string_view key) {
  const ObjectEntry* entry = impl_->find(key);
  return entry != nullptr ? entry->value : NYBDynamicValue();
}

bool NYBKeyedUnarchiver::containsValueForKey(std::string_view key) const {
  return impl_->find(key) != nullptr;
}

}  // namespace nyb
