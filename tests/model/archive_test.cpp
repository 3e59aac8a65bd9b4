// The keyed archive: every kind of value comes back as the same kind, model
// graphs keep their classes, what cannot be archived is left out, and damaged
// or hostile bytes give a failure, never a crash or an object of a class that
// was not asked for.
#include <gtest/gtest.h>
#include <msgpack/pack.hpp>
#include <msgpack/sbuffer.hpp>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "NymbrelCore/NYBModel.h"
#include "NymbrelCore/NYBURL.h"
#include "model/ArchiveFormat.h"
#include "support/LogCapture.h"

namespace nyb {
namespace {

class ArchivePoint : public NYBModel {
  NYB_DECLARE_MODEL(ArchivePoint, NYBModelClass)
 public:
  NYBDynamicValue label;
  NYBDynamicValue value;
  std::uint64_t count = 0;
};

class ArchiveSample : public ArchivePoint {
  NYB_DECLARE_MODEL(ArchiveSample, NYBModelClass)
 public:
  NYBDynamicValue points;
  NYBDynamicValue extras;
};

// Registered, but not archivable.
class ArchiveOpaque : public NYBObject {
  NYB_DECLARE_CLASS(NYBClass)
};

const NYBModelClass& ArchivePoint::staticClass() {
  static const NYBModelClass cls({"ArchivePoint",
                                  &NYBModel::staticClass(),
                                  [] { return std::make_shared<ArchivePoint>(); },
                                  NYBPropertyTable::of<ArchivePoint>()
                                      .field("label", &ArchivePoint::label)
                                      .field("value", &ArchivePoint::value)
                                      .unsignedScalar("count", &ArchivePoint::count),
                                  std::nullopt,
                                  {}});
  return cls;
}

const NYBModelClass& ArchiveSample::staticClass() {
  static const NYBModelClass cls({"ArchiveSample",
                                  &ArchivePoint::staticClass(),
                                  [] { return std::make_shared<ArchiveSample>(); },
                                  NYBPropertyTable::of<ArchiveSample>()
                                      .field("points", &ArchiveSample::points)
                                      .field("extras", &ArchiveSample::extras),
                                  std::nullopt,
                                  {}});
  return cls;
}

const NYBClass& ArchiveOpaque::staticClass() {
  static const NYBClass cls("ArchiveOpaque", &NYBObject::staticClass());
  return cls;
}

void registerClasses() {
  ArchivePoint::staticClass();
  ArchiveSample::staticClass();
  ArchiveOpaque::staticClass();
}

NYBData archive(const NYBDynamicValue& value) {
  return NYBKeyedArchiver::archivedDataWithRootObject(value);
}

// Whether the bytes decode; checks that both entry points agree on it.
bool decodes(const NYBData& data, NYBDynamicValue* out = nullptr) {
  std::shared_ptr<NYBError> error;
  NYBDynamicValue value = NYBKeyedUnarchiver::unarchivedObjectWithData(data, &error);
  bool raised = false;
  try {
    NYBKeyedUnarchiver::unarchiveObjectWithData(data);
  } catch (const NYBException& failure) {
    raised = true;
    EXPECT_EQ(failure.name(), kNYBInvalidUnarchiveOperationException);
  }
  EXPECT_EQ(raised, error != nullptr);
  if (error != nullptr) {
    EXPECT_TRUE(value.isAbsent());
    EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), 4864);
  }
  if (out != nullptr) *out = value;
  return error == nullptr;
}

// Same kind at every level, dictionaries in the same order, reals bit for bit.
void expectSameTree(const NYBDynamicValue& a, const NYBDynamicValue& b) {
  ASSERT_EQ(a.kind(), b.kind()) << a.description() << " / " << b.description();
  switch (a.kind()) {
    case NYBDynamicValue::Kind::Real:
      EXPECT_EQ(std::bit_cast<std::uint64_t>(a.doubleValue()),
                std::bit_cast<std::uint64_t>(b.doubleValue()));
      return;
    case NYBDynamicValue::Kind::Dictionary: {
      ASSERT_EQ(a.dictionary()->size(), b.dictionary()->size());
      for (auto i = a.dictionary()->begin(), j = b.dictionary()->begin();
           i != a.dictionary()->end(); ++i, ++j) {
        expectSameTree(i->first, j->first);
        expectSameTree(i->second, j->second);
      }
      return;
    }
    case NYBDynamicValue::Kind::Array:
      ASSERT_EQ(a.array()->size(), b.array()->size());
      for (std::size_t i = 0; i < a.array()->size(); ++i) {
        expectSameTree((*a.array())[i], (*b.array())[i]);
      }
      return;
    case NYBDynamicValue::Kind::Object:
      ASSERT_EQ(a.object()->className(), b.object()->className());
      expectSameTree(a.objectAs<NYBModel>()->dictionaryValue(),
                     b.objectAs<NYBModel>()->dictionaryValue());
      return;
    default:
      EXPECT_TRUE(a == b) << a.description() << " / " << b.description();
  }
}

// Random values of every kind, edge values included, nested up to a depth.
class ValueGenerator {
 public:
  explicit ValueGenerator(std::uint64_t seed) : random_(seed) {}

  NYBDynamicValue value(int depth) {
    const int kinds = depth > 0 ? 15 : 12;
    switch (pick(kinds)) {
      case 12: {
        NYBArray array;
        for (int n = pick(5); n > 0; --n) array.append(value(depth - 1));
        return array;
      }
      case 13: {
        NYBDictionary dictionary;
        for (int n = pick(5); n > 0; --n) dictionary.set(value(depth - 1), value(depth - 1));
        return dictionary;
      }
      case 14:
        return model(depth - 1);
      default:
        return scalar();
    }
  }

  NYBDynamicValue model(int depth) {
    std::shared_ptr<ArchivePoint> point;
    if (pick(2) == 0) {
      point = std::make_shared<ArchivePoint>();
    } else {
      auto sample = std::make_shared<ArchiveSample>();
      if (pick(2) == 0) sample->points = value(depth);
      sample->extras = value(depth);
      point = sample;
    }
    if (pick(3) != 0) point->label = scalar();
    if (pick(3) != 0) point->value = value(depth);
    point->count = random_();
    return point;
  }

  NYBDynamicValue scalar() {
    switch (pick(12)) {
      case 0:
        return NYBDynamicValue::null();
      case 1: {
        static const char* const kTexts[] = {"", "a", "22 bytes stays inline",
                                             "twenty-three bytes long", "héllo wörld ✓"};
        std::string text = kTexts[pick(5)];
        if (pick(4) == 0) text += std::string(1, '\0') + std::string(pick(300), 'x');
        return text;
      }
      case 2: {
        static const std::int64_t kIntegers[] = {0,
                                                 -1,
                                                 127,
                                                 128,
                                                 -32,
                                                 -33,
                                                 65536,
                                                 -129,
                                                 std::numeric_limits<std::int64_t>::min(),
                                                 std::numeric_limits<std::int64_t>::max()};
        return pick(2) == 0 ? kIntegers[pick(10)] : static_cast<std::int64_t>(random_());
      }
      case 3: {
        static const std::uint64_t kUnsigned[] = {
            0, 1, 255, 256, 65535, 65536, 0xffffffffULL, 0x100000000ULL, ~0ULL};
        return pick(2) == 0 ? kUnsigned[pick(9)] : random_() >> pick(64);
      }
      case 4: {
        static const double kReals[] = {0.0,
                                        -0.0,
                                        0.1,
                                        1.0,
                                        std::numeric_limits<double>::quiet_NaN(),
                                        std::numeric_limits<double>::infinity(),
                                        -std::numeric_limits<double>::infinity(),
                                        std::numeric_limits<double>::denorm_min()};
        return pick(2) == 0 ? kReals[pick(8)] : std::bit_cast<double>(random_());
      }
      case 5:
        return pick(2) == 0;
      case 6: {
        static const char* const kDecimals[] = {
            "98.6", "-0.25", "0", "1.5e+60", "NaN", "12345678901234567890.0987654321"};
        return NYBDecimal::fromString(kDecimals[pick(6)]);
      }
      case 7:
        return NYBDate(pick(2) == 0 ? 1456841109.25 : std::bit_cast<double>(random_()));
      case 8: {
        std::vector<std::uint8_t> bytes(pick(40));
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random_());
        return NYBData(std::move(bytes));
      }
      case 9: {
        static const char* const kURLs[] = {"https://example.com/v1/records?x=1", "relative/path",
                                            "file:///tmp/a%20b"};
        return *NYBURL::URLWithString(kURLs[pick(3)]);
      }
      case 10:
        return pick(1000);
      default:
        return "key" + std::to_string(pick(20));
    }
  }

 private:
  int pick(int n) { return static_cast<int>(random_() % static_cast<std::uint64_t>(n)); }
  std::mt19937_64 random_;
};

TEST(Archive, EveryKindOfValueComesBackAsTheSameKindAtEveryLevel) {
  registerClasses();
  ValueGenerator generator(20240611);
  for (int i = 0; i < 600; ++i) {
    SCOPED_TRACE(i);
    const NYBDynamicValue original = generator.value(i % 6);
    const NYBData bytes = archive(original);
    NYBDynamicValue decoded;
    ASSERT_TRUE(decodes(bytes, &decoded));
    expectSameTree(original, decoded);
    EXPECT_EQ(archive(decoded), bytes) << "archiving must be deterministic";
  }
  EXPECT_TRUE(NYBKeyedUnarchiver::unarchiveObjectWithData(archive({})).isAbsent());
  const NYBDynamicValue small = NYBKeyedUnarchiver::unarchiveObjectWithData(archive(7u));
  EXPECT_EQ(small.kind(), NYBDynamicValue::Kind::Unsigned);
}

TEST(Archive, ModelGraphsKeepTheirClassesAndModelKeysStillFindTheirValues) {
  registerClasses();
  auto first = std::make_shared<ArchivePoint>();
  first->label = "first";
  first->count = 3;
  auto second = std::make_shared<ArchiveSample>();
  second->label = "second";
  second->points = NYBArray{first, NYBDictionary{{"nested", first}}};
  const NYBDictionary photos{{first, "a.png"}, {second, "b.png"}};

  const NYBDynamicValue decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(archive(photos));
  ASSERT_TRUE(decoded.isDictionary());
  EXPECT_EQ((*decoded.dictionary())[first], NYBDynamicValue("a.png"));
  EXPECT_EQ((*decoded.dictionary())[second], NYBDynamicValue("b.png"));
  auto keys = decoded.dictionary()->begin();
  auto decodedSecond = (++keys)->first.objectAs<ArchiveSample>();
  ASSERT_TRUE(decodedSecond);
  EXPECT_TRUE(decodedSecond->isMemberOfClass(ArchiveSample::staticClass()));
  EXPECT_NE(decodedSecond.get(), second.get());
  EXPECT_TRUE(decodedSecond->isEqual(*second));
  EXPECT_TRUE(
      (*decodedSecond->points.array())[0].object()->isMemberOfClass(ArchivePoint::staticClass()));
}

TEST(Archive, WhatCannotBeArchivedIsLeftOutAndTheRestKept) {
  registerClasses();
  auto sample = std::make_shared<ArchiveSample>();
  sample->label = "kept";
  sample->value = std::make_shared<ArchiveOpaque>();
  // The failure comes from deep inside: the half-written array must not remain.
  sample->points = NYBArray{1, NYBDictionary{{"error", NYBError::errorWithDomain("d", 1)}}};
  sample->extras = NYBArray{2};
  sample->count = 9;

  test::LogCapture log;
  const NYBData bytes = archive(sample);
  auto decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(bytes).objectAs<ArchiveSample>();
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->label, NYBDynamicValue("kept"));
  EXPECT_TRUE(decoded->value.isAbsent());
  EXPECT_TRUE(decoded->points.isAbsent());
  EXPECT_EQ(decoded->extras, NYBDynamicValue(NYBArray{2}));
  EXPECT_EQ(decoded->count, 9u);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("*** Caught exception encoding value for key \"value\" on class "
                           "ArchiveSample: ",
                           0),
            0u)
      << lines[0];

  // At the root nothing catches the failure.
  EXPECT_THROW(archive(std::make_shared<ArchiveOpaque>()), NYBInvalidArgumentException);
  EXPECT_THROW(archive(NYBArray{NYBError::errorWithDomain("d", 1)}), NYBInvalidArgumentException);

  // Nesting is bounded the same way on both sides; a cycle ends at the bound.
  NYBDynamicValue nested = NYBArray{};
  for (std::size_t depth = 1; depth < archive::kMaxDepth; ++depth) nested = NYBArray{nested};
  EXPECT_TRUE(decodes(archive(nested)));
  EXPECT_THROW(archive(NYBArray{nested}), NYBInvalidArgumentException);
  auto cyclic = std::make_shared<ArchivePoint>();
  cyclic->value = cyclic;
  EXPECT_TRUE(decodes(archive(cyclic)));
  cyclic->value = {};
}

// Hand-made archives: the header, then what `body` packs.
template <typename Body>
NYBData craft(Body body) {
  msgpack::sbuffer buffer;
  buffer.write(reinterpret_cast<const char*>(archive::kMagic), sizeof(archive::kMagic));
  buffer.write(reinterpret_cast<const char*>(&archive::kVersion), 1);
  msgpack::packer<msgpack::sbuffer> packer(buffer);
  body(packer, buffer);
  return NYBData(std::string_view(buffer.data(), buffer.size()));
}

// An object of the named class with one entry.
NYBData craftObject(const std::string& className, const char* key, bool nilValue) {
  return craft([&](auto& packer, auto&) {
    msgpack::sbuffer payload;
    msgpack::packer<msgpack::sbuffer> inner(payload);
    auto packString = [&](std::string_view text) {
      inner.pack_str(static_cast<std::uint32_t>(text.size()))
          .pack_str_body(text.data(), text.size());
    };
    packString(className);
    inner.pack_map(1);
    packString(key);
    if (nilValue) {
      inner.pack_nil();
    } else {
      packString("text");
    }
    packer.pack_ext(payload.size(), archive::kObject);
    packer.pack_ext_body(payload.data(), payload.size());
  });
}

TEST(Archive, RepeatedKeysKeepTheirFirstPlaceAndTheirLastValue) {
  for (std::uint32_t size : {3u, 40u}) {
    const NYBData bytes = craft([&](auto& packer, auto&) {
      packer.pack_map(size);
      for (std::uint32_t i = 0; i + 1 < size; ++i) packer.pack_int(static_cast<int>(i)).pack_int(0);
      packer.pack_int(1).pack_true();
    });
    NYBDictionary expected;
    for (std::uint32_t i = 0; i + 1 < size; ++i)
      expected.set(static_cast<int>(i), i == 1 ? NYBDynamicValue(true) : 0);
    NYBDynamicValue decoded;
    ASSERT_TRUE(decodes(bytes, &decoded));
    expectSameTree(decoded, expected);
  }

  // Two keys nested 200 deep that differ only at the bottom: telling them
  // apart must not take time exponential in the depth.
  const NYBData nestedKeys = craft([](auto& packer, auto&) {
    packer.pack_map(2);
    for (int key = 1; key <= 2; ++key) {
      for (int depth = 0; depth < 200; ++depth) packer.pack_map(1);
      packer.pack_int(key);
      for (int depth = 0; depth < 201; ++depth) packer.pack_int(0);
    }
  });
  NYBDynamicValue decoded;
  ASSERT_TRUE(decodes(nestedKeys, &decoded));
  EXPECT_EQ(decoded.dictionary()->size(), 2u);
}

TEST(Archive, DamagedAndHostileBytesFailWithoutCrashing) {
  registerClasses();
  ValueGenerator generator(7);
  NYBArray values;
  for (int i = 0; i < 8; ++i) values.append(generator.value(3));
  values.append(generator.model(2));
  const NYBData good = archive(values);
  const auto& bytes = good.vector();

  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(decodes(NYBData(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + length))))
        << "truncated to " << length;
  }
  std::vector<std::uint8_t> longer = bytes;
  longer.push_back(0);
  EXPECT_FALSE(decodes(NYBData(longer)));

  std::mt19937_64 random(99);
  for (int i = 0; i < 4000; ++i) {
    std::vector<std::uint8_t> flipped = bytes;
    const std::size_t bit = random() % (flipped.size() * 8);
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    NYBDynamicValue decoded;
    if (!decodes(NYBData(flipped), &decoded)) continue;
    EXPECT_GE(bit / 8, archive::kHeaderSize);
    // Whatever decodes must archive again, to bytes that read back the same.
    const NYBData again = archive(decoded);
    NYBDynamicValue redecoded;
    ASSERT_TRUE(decodes(again, &redecoded)) << "flipped bit " << bit;
    EXPECT_EQ(archive(redecoded), again);
  }

  EXPECT_TRUE(decodes(craftObject("ArchivePoint", "label", false)));
  const NYBData hostile[] = {
      NYBData(std::string_view("NYBA\x02\xc0", 6)),  // another version
      craft([](auto&, auto& out) { out.write("\xdd\xff\xff\xff\xff", 5); }),
      craft([](auto&, auto& out) { out.write("\xdf\xff\xff\xff\xff", 5); }),
      craft([](auto&, auto& out) { out.write("\xdb\xff\xff\xff\xff", 5); }),
      craft([](auto&, auto& out) { out.write("\xc6\xff\xff\xff\xff", 5); }),
      craft([](auto&, auto& out) { out.write("\xc9\xff\xff\xff\xff\x05", 6); }),
      // Each level claims far more elements than the bytes left can hold.
      craft([](auto&, auto& out) {
        for (int i = 0; i < 200; ++i) out.write("\xdc\x0f\xff", 3);
      }),
      craft([](auto&, auto& out) { out.write("\xc1", 1); }),
      craft([](auto& packer, auto&) { packer.pack_uint64(~0ULL); }),
      craft([](auto& packer, auto&) {
        packer.pack_ext(3, archive::kUnsigned).pack_ext_body("abc", 3);
      }),
      craft([](auto& packer, auto&) {
        packer.pack_ext(4, archive::kDecimal).pack_ext_body("9x.6", 4);
      }),
      craft([](auto& packer, auto&) { packer.pack_ext(3, archive::kURL).pack_ext_body("a b", 3); }),
      craft([](auto& packer, auto&) { packer.pack_ext(1, 99).pack_ext_body("x", 1); }),
      craft([](auto& packer, auto&) { packer.pack_ext(0, archive::kAbsentRoot).pack_nil(); }),
      craft([](auto& packer, auto&) { packer.pack_array(1).pack_ext(0, archive::kAbsentRoot); }),
      craftObject("NoSuchClass", "label", false),
      craftObject("ArchiveOpaque", "label", false),
      craftObject("ArchivePoint", "count", true),  // nil where a scalar is needed
      craft([](auto&, auto& out) {
        for (int i = 0; i < 100000; ++i) out.write("\x91", 1);
        out.write("\x90", 1);
      }),
  };
  for (std::size_t i = 0; i < std::size(hostile); ++i) {
    EXPECT_FALSE(decodes(hostile[i])) << "hostile archive " << i;
  }
}

}  // namespace
}  // namespace nyb
