// The keyed archiver: dynamic values and model objects to MessagePack (layout
// in ArchiveFormat.h).
//
// One Encoder owns the output bytes for a whole archive. Each object being
// encoded gets its own NYBKeyedArchiver on the stack, whose Impl counts the
// entries stored for that object; the object's map header is written with room
// for a 32-bit count and patched when the object is done, and so is its ext
// length. A failed encodeObject() truncates the bytes back to where the call
// began, so the archive is as if the call had never been made.
#include "NymbrelCore/NYBKeyedArchiver.h"

#include <msgpack/pack.hpp>

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
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

class Encoder {
 public:
  // `depth`: the containers the values written will sit in.
  // `storage`: an empty buffer whose capacity is used.
  explicit Encoder(std::size_t depth = 0, std::vector<std::uint8_t> storage = {})
      : bytes_(std::move(storage)), packer_(*this), depth_(depth) {
    bytes_.reserve(256);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // The stream interface msgpack::packer writes through.
  void write(const char* data, std::size_t size) {
    bytes_.insert(bytes_.end(), reinterpret_cast<const std::uint8_t*>(data),
                  reinterpret_cast<const std::uint8_t*>(data) + size);
  }

  std::size_t size() const { return bytes_.size(); }
  std::vector<std::uint8_t> take() { return std::move(bytes_); }

  void writeHeader() {
    bytes_.insert(bytes_.end(), std::begin(archive::kMagic), std::end(archive::kMagic));
    bytes_.push_back(archive::kVersion);
  }

  void writeAbsentRoot() {
    bytes_.push_back(archive::kExt8);
    bytes_.push_back(0);
    bytes_.push_back(static_cast<std::uint8_t>(archive::kAbsentRoot));
  }

  void writeKey(std::string_view key) {
    packer_.pack_str(checkedLength(key.size()));
    write(key.data(), key.size());
  }

  // The header of an array whose elements the caller writes as bytes.
  void writeArrayHeader(std::size_t count) { packer_.pack_array(checkedLength(count)); }
  void reserveMore(std::size_t count) { bytes_.reserve(bytes_.size() + count); }

  // Writes one present value. Raises NYBInvalidArgumentException for what
  // cannot be archived; the caller rolls back.
  void writeValue(const NYBDynamicValue& value);

  // Restores the state of an earlier point after a failed call.
  void rollBack(std::size_t size, std::size_t depth) {
    bytes_.resize(size);
    depth_ = depth;
  }
  std::size_t depth() const { return depth_; }

 private:
  void enter() {
    if (++depth_ > archive::kMaxDepth) {
      throw NYBInvalidArgumentException(
          "*** The value is nested too deeply to be archived (more than " +
          std::to_string(archive::kMaxDepth) + " levels; is there a cycle?)");
    }
  }
  void leave() { --depth_; }

  static std::uint32_t checkedLength(std::size_t length) {
    if (length > std::numeric_limits<std::uint32_t>::max()) {
      throw NYBInvalidArgumentException("*** A value is too large to be archived");
    }
    return static_cast<std::uint32_t>(length);
  }

  void writeExt(archive::ExtType type, std::string_view payload) {
    packer_.pack_ext(checkedLength(payload.size()), type);
    write(payload.data(), payload.size());
  }

  void writeBigEndian(std::uint64_t value, unsigned byteCount) {
    for (unsigned i = byteCount; i-- > 0;) {
      bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
  }

  void patchBigEndian32(std::size_t at, std::uint32_t value) {
    for (unsigned i = 0; i < 4; ++i) {
      bytes_[at + i] = static_cast<std::uint8_t>(value >> (8 * (3 - i)));
    }
  }

  void writeUnsigned(std::uint64_t value) {
    const unsigned width = value <= 0xff ? 1 : value <= 0xffff ? 2 : value <= 0xffffffff ? 4 : 8;
    packer_.pack_ext(width, archive::kUnsigned);
    writeBigEndian(value, width);
  }

  void writeObject(const NYBObject& object);

  std::vector<std::uint8_t> bytes_;
  msgpack::packer<Encoder> packer_;
  std::size_t depth_ = 0;
};

}  // namespace

struct NYBKeyedArchiver::Impl {
  Encoder& encoder;
  std::uint32_t entries = 0;

  // Encodes the keyed entries of an object through a fresh archiver; returns
  // how many were stored.
  static std::uint32_t encodeEntries(Encoder& encoder, const NYBObject& object) {
    Impl impl{encoder};
    NYBKeyedArchiver archiver(&impl);
    object.encodeWithCoder(archiver);
    return impl.entries;
  }

  static void encodeEncodedArray(NYBKeyedArchiver& coder, std::string_view key,
                                 const std::vector<std::string_view>& elements) {
    Encoder& encoder = coder.impl_->encoder;
    std::size_t total = key.size() + 10;
    for (std::string_view element : elements) total += element.size();
    encoder.reserveMore(total);
    encoder.writeKey(key);
    encoder.writeArrayHeader(elements.size());
    for (std::string_view element : elements) encoder.write(element.data(), element.size());
    ++coder.impl_->entries;
  }
};

namespace {

void Encoder::writeObject(const NYBObject& object) {
  const NYBClass& classObject = object.classObject();
  if (!classObject.supportsSecureCoding()) {
    throw NYBInvalidArgumentException("*** Instances of class " + classObject.name() +
                                      " cannot be archived: the class does not support keyed "
                                      "coding");
  }
  enter();
  // ext 32 header with the payload length patched below, then the class name
  // and a map 32 header whose count is patched below.
  bytes_.push_back(archive::kExt32);
  const std::size_t lengthAt = bytes_.size();
  bytes_.insert(bytes_.end(), 4, 0);
  bytes_.push_back(static_cast<std::uint8_t>(archive::kObject));
  const std::size_t payloadStart = bytes_.size();
  writeKey(classObject.name());
  bytes_.push_back(archive::kMap32);
  const std::size_t countAt = bytes_.size();
  bytes_.insert(bytes_.end(), 4, 0);

  const std::uint32_t entries = NYBKeyedArchiver::Impl::encodeEntries(*this, object);

  patchBigEndian32(countAt, entries);
  patchBigEndian32(lengthAt, checkedLength(bytes_.size() - payloadStart));
  leave();
}

void Encoder::writeValue(const NYBDynamicValue& value) {
  using Kind = NYBDynamicValue::Kind;
  switch (value.kind()) {
    case Kind::Absent:
      throw NYBInvalidArgumentException(
          "*** An absent value cannot be archived inside a container");
    case Kind::Null:
      packer_.pack_nil();
      return;
    case Kind::String: {
      const std::string_view text = value.stringView();
      packer_.pack_str(checkedLength(text.size()));
      write(text.data(), text.size());
      return;
    }
    case Kind::Integer:
      packer_.pack_int64(value.integerValue());
      return;
    case Kind::Unsigned:
      writeUnsigned(value.unsignedValue());
      return;
    case Kind::Real:
      // By hand: msgpack::packer::pack_double() writes integral reals as
      // integers, which would read back as another kind (and lose -0).
      bytes_.push_back(archive::kFloat64);
      writeBigEndian(std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
      return;
    case Kind::Boolean:
      if (value.boolValue()) {
        packer_.pack_true();
      } else {
        packer_.pack_false();
      }
      return;
    case Kind::Decimal:
      writeExt(archive::kDecimal, value.decimal()->stringValue());
      return;
    case Kind::Date:
      packer_.pack_ext(8, archive::kDate);
      writeBigEndian(std::bit_cast<std::uint64_t>(value.date()->timeIntervalSince1970()), 8);
      return;
    case Kind::Dictionary: {
      const NYBDictionary& dictionary = *value.dictionary();
      enter();
      packer_.pack_map(checkedLength(dictionary.size()));
      for (const auto& [key, element] : dictionary) {
        writeValue(key);
        writeValue(element);
      }
      leave();
      return;
    }
    case Kind::Array: {
      const NYBArray& array = *value.array();
      enter();
      packer_.pack_array(checkedLength(array.size()));
      for (const NYBDynamicValue& element : array) writeValue(element);
      leave();
      return;
    }
    case Kind::Data: {
      const NYBData& data = *value.data();
      packer_.pack_bin(checkedLength(data.length()));
      write(reinterpret_cast<const char*>(data.bytes()), data.length());
      return;
    }
    case Kind::URL:
      writeExt(archive::kURL, value.url()->absoluteString());
      return;
    case Kind::Object:
      if (value.object() == nullptr) {
        throw NYBInvalidArgumentException("*** A null object reference cannot be archived");
      }
      writeObject(*value.object());
      return;
  }
  throw NYBInvalidArgumentException("*** A value of an unknown kind cannot be archived");
}

}  // namespace

NYBKeyedArchiver::NYBKeyedArchiver(Impl* impl) : impl_(impl) {}

// The Impl lives on the stack of whoever made the archiver.
NYBKeyedArchiver::~NYBKeyedArchiver() = default;

NYBData NYBKeyedArchiver::archivedDataWithRootObject(const NYBDynamicValue& root) {
  std::vector<std::uint8_t> bytes;
  archiveRootObject(root, bytes);
  return NYBData(std::move(bytes));
}

void NYBKeyedArchiver::archiveRootObject(const NYBDynamicValue& root,
                                         std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  Encoder encoder(0, std::move(bytes));
  encoder.writeHeader();
  if (root.isAbsent()) {
    encoder.writeAbsentRoot();
  } else {
    encoder.writeValue(root);
  }
  bytes = encoder.take();
}

namespace archive {

NYBData encodedElement(const NYBDynamicValue& value) {
  // Inside the root object and its array.
  Encoder encoder(2);
  encoder.writeValue(value);
  return NYBData(encoder.take());
}

void encodeEncodedArray(NYBKeyedArchiver& coder, std::string_view key,
                        const std::vector<std::string_view>& elements) {
  NYBKeyedArchiver::Impl::encodeEncodedArray(coder, key, elements);
}

}  // namespace archive

void NYBKeyedArchiver::encodeObject(const NYBDynamicValue& value, std::string_view key) {
  if (value.isAbsent()) return;
  Encoder& encoder = impl_->encoder;
  const std::size_t size = encoder.size();
  const std::size_t depth = encoder.depth();
  try {
    encoder.writeKey(key);
    encoder.writeValue(value);
  } catch (...) {
    encoder.rollBack(size, depth);
    throw;
  }
  ++impl_->entries;
}

}  // namespace nyb
