// The keyed archive: every kind of value comes back as the same kind, model
// graphs keep their classes, what cannot be archived is left out, and damaged
// or hostile bytes give a failure, never a crash or an object of a class that
// was not asked for.
#include <gtest/gtest.h>
#include <msgpack/pack.hpp>
#include <msgpack/sbuffer.hpp>

#include <random>
#include <string>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBException.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBKeyedUnarchiver.h"
#include "ValueGenerator.h"
#include "model/ArchiveFormat.h"
#include "support/LogCapture.h"
#include "support/TestModels.h"

namespace nyb {
namespace {

using namespace std::string_view_literals;

using test::TestEmployee;
using test::TestPerson;

// Registered before any test decodes them by name.
[[maybe_unused]] const bool kRegistered =
    (TestPerson::staticClass(), TestEmployee::staticClass(), true);

// Registered, but not archivable.
std::shared_ptr<NYBError> unarchivable() { return NYBError::errorWithDomain("d", 1); }

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
  if (a.kind() == NYBDynamicValue::Kind::Real) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(a.doubleValue()),
              std::bit_cast<std::uint64_t>(b.doubleValue()));
  } else if (a.isDictionary()) {
    ASSERT_EQ(a.dictionary()->size(), b.dictionary()->size());
    for (auto i = a.dictionary()->begin(), j = b.dictionary()->begin(); i != a.dictionary()->end();
         ++i, ++j) {
      expectSameTree(i->first, j->first);
      expectSameTree(i->second, j->second);
    }
  } else if (a.isArray()) {
    ASSERT_EQ(a.array()->size(), b.array()->size());
    for (std::size_t i = 0; i < a.array()->size(); ++i)
      expectSameTree((*a.array())[i], (*b.array())[i]);
  } else if (a.kind() == NYBDynamicValue::Kind::Object) {
    ASSERT_EQ(a.object()->className(), b.object()->className());
    expectSameTree(a.objectAs<NYBModel>()->dictionaryValue(),
                   b.objectAs<NYBModel>()->dictionaryValue());
  } else {
    EXPECT_TRUE(a == b) << a.description() << " / " << b.description();
  }
}

// Models of both classes, holding values of every kind (the name is left alone: its setter
// sets the nickname).
class ValueGenerator : public test::ValueGenerator {
 public:
  explicit ValueGenerator(std::uint64_t seed) : test::ValueGenerator(seed, false) {}

  NYBDynamicValue model(int depth) override {
    auto person = pick(2) == 0 ? std::make_shared<TestPerson>() : std::make_shared<TestEmployee>();
    if (auto employee = std::dynamic_pointer_cast<TestEmployee>(person); employee && pick(2) == 0)
      employee->employer = value(depth);
    if (pick(3) != 0) person->nickname = scalar();
    if (pick(3) != 0) person->tags = value(depth);
    person->age = random_();
    person->active = pick(2) == 0;
    return person;
  }
};

TEST(Archive, EveryKindOfValueComesBackAsTheSameKindAtEveryLevel) {
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
}

TEST(Archive, WhatCannotBeArchivedIsLeftOutAndTheRestKept) {
  auto employee = std::make_shared<TestEmployee>();
  employee->nickname = "kept";
  employee->address = unarchivable();
  // The failure comes from deep inside: the half-written array must not remain.
  employee->tags = NYBArray{1, NYBDictionary{{"error", unarchivable()}}};
  employee->employer = NYBArray{2};
  employee->age = 9;

  test::LogCapture log;
  const NYBData bytes = archive(employee);
  auto decoded = NYBKeyedUnarchiver::unarchiveObjectWithData(bytes).objectAs<TestEmployee>();
  employee->address = employee->tags = {};
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->isEqual(*employee)) << decoded->description();
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_TRUE(log.lines()[0].starts_with(
      "*** Caught exception encoding value for key \"address\" on class TestEmployee: "))
      << log.lines()[0];

  // At the root nothing catches the failure.
  EXPECT_THROW(archive(unarchivable()), NYBInvalidArgumentException);
  EXPECT_THROW(archive(NYBArray{unarchivable()}), NYBInvalidArgumentException);

  // Nesting is bounded the same way on both sides; a cycle ends at the bound.
  NYBDynamicValue nested = NYBArray{};
  for (std::size_t depth = 1; depth < archive::kMaxDepth; ++depth) nested = NYBArray{nested};
  EXPECT_TRUE(decodes(archive(nested)));
  EXPECT_THROW(archive(NYBArray{nested}), NYBInvalidArgumentException);
  auto cyclic = std::make_shared<TestPerson>();
  cyclic->tags = cyclic;
  EXPECT_TRUE(decodes(archive(cyclic)));
  cyclic->tags = {};
}

// Hand-made archives: the header, then what `body` packs or the bytes given.
template <typename Body>
NYBData craft(Body body) {
  msgpack::sbuffer buffer;
  buffer.write(reinterpret_cast<const char*>(archive::kMagic), sizeof(archive::kMagic));
  buffer.write(reinterpret_cast<const char*>(&archive::kVersion), 1);
  msgpack::packer<msgpack::sbuffer> packer(buffer);
  if constexpr (std::is_invocable_v<Body, decltype(packer)&>) {
    body(packer);
  } else {
    buffer.write(std::string_view(body).data(), std::string_view(body).size());
  }
  return NYBData(std::string_view(buffer.data(), buffer.size()));
}

std::string times(std::string_view bytes, int count) {
  std::string out;
  while (count-- > 0) out += bytes;
  return out;
}

// An object of the named class whose entries hold strings, or nil for null.
NYBData craftObject(std::string_view className,
                    std::initializer_list<std::pair<std::string_view, const char*>> entries) {
  return craft([&](auto& packer) {
    msgpack::sbuffer payload;
    msgpack::packer<msgpack::sbuffer> inner(payload);
    auto packString = [&](std::string_view text) {
      inner.pack_str(static_cast<std::uint32_t>(text.size()))
          .pack_str_body(text.data(), text.size());
    };
    packString(className);
    inner.pack_map(static_cast<std::uint32_t>(entries.size()));
    for (const auto& [key, value] : entries) {
      packString(key);
      value != nullptr ? packString(value) : void(inner.pack_nil());
    }
    packer.pack_ext(payload.size(), archive::kObject).pack_ext_body(payload.data(), payload.size());
  });
}

TEST(Archive, RepeatedKeysKeepTheirFirstPlaceAndLastValueAndDamagedBytesFailWithoutCrashing) {
  const auto point = NYBKeyedUnarchiver::unarchiveObjectWithData(
      craftObject("TestPerson", {{"tags", "a"}, {"city", "b"}, {"tags", "c"}}));
  EXPECT_EQ(point.objectAs<TestPerson>()->tags, NYBDynamicValue("c"));
  EXPECT_EQ(point.objectAs<TestPerson>()->city, NYBDynamicValue("b"));

  for (std::uint32_t size : {3u, 40u}) {
    NYBDictionary expected;
    const NYBData bytes = craft([&](auto& packer) {
      packer.pack_map(size);
      for (int i = 0; i + 1 < static_cast<int>(size); ++i) {
        packer.pack_int(i).pack_int(0);
        expected.set(i, i == 1 ? NYBDynamicValue(true) : 0);
      }
      packer.pack_int(1).pack_true();
    });
    NYBDynamicValue decoded;
    ASSERT_TRUE(decodes(bytes, &decoded));
    expectSameTree(decoded, expected);
  }

  // Damaged and hostile bytes fail without crashing.
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

  EXPECT_TRUE(decodes(craftObject("TestPerson", {{"tags", "x"}})));
  const NYBData hostile[] = {
      NYBData("NYBA\x02\xc0"sv),        // another version
      craft("\xdd\xff\xff\xff\xff"sv),  // absurd lengths: array, map, str, bin, ext
      craft("\xdf\xff\xff\xff\xff"sv),
      craft("\xdb\xff\xff\xff\xff"sv),
      craft("\xc6\xff\xff\xff\xff"sv),
      craft("\xc9\xff\xff\xff\xff\x05"sv),
      craft(times("\xdc\x0f\xff", 200)),  // each level claims more than the bytes left
      craft("\xc1"sv),
      craft("\xcf\xff\xff\xff\xff\xff\xff\xff\xff"sv),  // an integer above INT64_MAX
      craft("\xc7\x03\x01xyz"sv),                       // an unsigned number of 3 bytes
      craft("\xc7\x03\x02one"sv),                       // a decimal that is not a number
      craft("\xc7\x03\x04x y"sv),                       // a URL that is not a URL
      craft("\xd4\x63x"sv),                             // an unknown extension type
      craft("\xc7\x00\x06\xc0"sv),                      // an absent root followed by more
      craft("\x91\xc7\x00\x06"sv),                      // absent below the root
      craftObject("NoSuchClass", {{"tags", "x"}}),
      craftObject(unarchivable()->className(), {{"tags", "x"}}),
      craftObject("TestPerson", {{"age", nullptr}}),  // nil where a scalar is needed
      craft(times("\x91", 100000) + "\x90"),
  };
  for (std::size_t i = 0; i < std::size(hostile); ++i) {
    EXPECT_FALSE(decodes(hostile[i])) << "hostile archive " << i;
  }
}

}  // namespace
}  // namespace nyb
