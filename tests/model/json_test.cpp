// Reading and writing JSON text: round trips of generated documents, exact
// output, number kinds, malformed text and values that JSON cannot hold.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "NymbrelCore/NYBArray.h"
#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDate.h"
#include "NymbrelCore/NYBDecimal.h"
#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBJSONSerialization.h"
#include "NymbrelCore/NYBURL.h"
#include "ValueGenerator.h"

namespace nyb {
namespace {

NYBDynamicValue parse(std::string_view text, std::shared_ptr<NYBError>* error = nullptr) {
  return NYBJSONSerialization::JSONObjectWithData(text, error);
}

std::string write(const NYBDynamicValue& value) {
  std::shared_ptr<NYBError> error;
  auto text = NYBJSONSerialization::dataWithJSONObject(value, &error);
  EXPECT_TRUE(text.has_value()) << (error ? error->localizedDescription() : "no error");
  return text.value_or("");
}

std::string writeFailure(const NYBDynamicValue& value) {
  std::shared_ptr<NYBError> error;
  auto text = NYBJSONSerialization::dataWithJSONObject(value, &error);
  EXPECT_FALSE(text.has_value()) << *text;
  EXPECT_FALSE(NYBJSONSerialization::isValidJSONObject(value));
  if (!error) return "no error";  // which no caller expects
  EXPECT_EQ(error->domain(), kNYBCocoaErrorDomain);
  EXPECT_EQ(error->code(), kNYBPropertyListWriteInvalidError);
  return error->localizedDescription();
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

NYBDynamicValue nestedValue(std::size_t depth) {
  NYBDynamicValue value = NYBArray{};
  for (std::size_t i = 1; i < depth; ++i) value = NYBArray{value};
  return value;
}

TEST(JSONSerialization, GeneratedDocumentsSurviveWriteAndReadExactly) {
  test::ValueGenerator generator(0x5EED, true);
  for (int i = 0; i < 600; ++i) {
    const NYBDynamicValue original = i % 2 ? generator.array(4) : generator.dictionary(4);
    ASSERT_TRUE(NYBJSONSerialization::isValidJSONObject(original));
    const std::string text = write(original);
    const NYBDynamicValue read = parse(text);
    ASSERT_EQ(read, original) << text;
    // Equality compares numbers by value; the text shows any lost bit.
    ASSERT_EQ(write(read), text);
  }
}

TEST(JSONSerialization, WritesCompactEscapedTextInKeyOrder) {
  NYBDictionary dictionary;
  dictionary.append("zeta", 1);
  dictionary.append("alpha", NYBArray{true, false, NYBDynamicValue::null()});
  dictionary.append("text", "q\"b\\s/\b\f\n\r\t\x01\x1f\x7f é 😀");
  dictionary.append(std::string("nul\0", 4), std::string("a\0b", 3));
  dictionary.append("sum", 0.1 + 0.2);
  dictionary.append("big", 1e300);
  dictionary.append("negativeZero", -0.0);
  dictionary.append("min", std::numeric_limits<std::int64_t>::min());
  dictionary.append("max", std::numeric_limits<std::uint64_t>::max());
  dictionary.append("seventy", 70.0);
  dictionary.append("twoTo63", 9223372036854775808.0);
  dictionary.append("tiny", 5e-324);
  dictionary.append("decimal", NYBDecimal::fromString("98.60"));
  dictionary.append("empty", NYBArray{NYBDictionary{}, NYBArray{}, ""});
  dictionary.append("skipsAbsent", NYBArray{1, NYBDynamicValue(), 2});
  EXPECT_EQ(write(dictionary),
            R"({"zeta":1,"alpha":[true,false,null],)"
            R"("text":"q\"b\\s/\b\f\n\r\t\u0001\u001F)"
            "\x7f é 😀\","
            R"("nul\u0000":"a\u0000b","sum":0.30000000000000004,"big":1e+300,"negativeZero":-0,)"
            R"("min":-9223372036854775808,"max":18446744073709551615,"seventy":70,)"
            R"("twoTo63":9.223372036854776e+18,"tiny":5e-324,"decimal":98.6,)"
            R"("empty":[{},[],""],"skipsAbsent":[1,2]})");
}

TEST(JSONSerialization, ReadsNumbersExactlyEveryEscapeAndTheLastOfRepeatedKeys) {
  using I = std::numeric_limits<std::int64_t>;
  const struct {
    const char* text;
    NYBDynamicValue expected;  // compared by kind and written text
  } cases[] = {
      {"9223372036854775807", I::max()},
      {"-9223372036854775808", I::min()},
      {"9223372036854775808", std::uint64_t{1} << 63},
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
      {"18446744073709551616", 18446744073709551616.0},
      {"-9223372036854775809", -9223372036854775809.0},
      {"-0", -0.0},
      {"1E2", 100.0},
      {"9007199254740993.0", 9007199254740992.0},  // ties to even
      {"4.9e-324", 5e-324},
      {"-1e-400", -0.0},
      {"0.000001e-10", 1e-16},
  };
  for (const auto& c : cases) {
    const NYBDynamicValue read = parse("[" + std::string(c.text) + "]");
    ASSERT_TRUE(read.isArray()) << c.text;
    EXPECT_EQ((*read.array())[0].kind(), c.expected.kind()) << c.text;
    EXPECT_EQ(write(read), write(NYBArray{c.expected})) << c.text;  // the writer shows every bit
  }

  // Escapes the writer never uses; repeated keys keep their first place and
  // their last value, in small and in indexed dictionaries.
  EXPECT_EQ(parse(R"(["\u00e9\ud83d\ude00\u0000\/"])"),
            NYBDynamicValue(NYBArray{std::string("é😀\0/", 8)}));
  for (int size : {3, 40}) {
    std::string text = " \n\t{";
    NYBDictionary expected;
    for (int i = 0; i < size; ++i) {
      text += "\"k" + std::to_string(i) + "\":" + std::to_string(i) + ",";
      expected.set("k" + std::to_string(i), i);
    }
    expected.set("k0", NYBDynamicValue::null());
    expected.set("k1", "last");
    const NYBDynamicValue read = parse(text + R"("k1":"one","k0":null,"k1":"last"})" + "\r\n");
    ASSERT_TRUE(read.isDictionary()) << text;
    EXPECT_EQ(*read.dictionary(), expected);
    EXPECT_EQ(read.dictionary()->stringKeys(), expected.stringKeys());
  }
}

TEST(JSONSerialization, MalformedTextGivesAnErrorAndNoValue) {
  // clang-format off
  std::vector<std::string> corpus = {
      "", " \n ", "{", "[", "[1,]", "[1 2]", "[1,2", "{\"a\" 1}", "{\"a\":}", "{1:2}",
      "{\"a\":1,}", "nul", "[nul]", "[tru]", "1", "\"x\"", "true", "null", "-1.5", "[1] x",
      "[1][2]", "[\"\xff\"]", "[\"\xc3\"]", "[\"\xc0\xaf\"]", "[\"\xed\xa0\x80\"]",
      "[\"\xf4\x90\x80\x80\"]", "[\"\\ud800\"]", "[\"\\udc00\"]", "[\"\\ud800\\u0041\"]",
      "[\"\\u12\"]", "[\"\\x\"]", "[\"a\nb\"]", "[\"unterminated]", "[1e400]", "[-1e400]",
      "[123456789012345678901234567890e300]", "[NaN]", "[Infinity]", "[-Infinity]", "[01]",
      "[1.]", "[.5]", "[+1]", "[1e]", "[0x10]", "['a']", "/* comment */ []", "\xef\xbb\xbf[]"};
  // clang-format on
  corpus.insert(corpus.end(),
                {std::string("[1]\0[2]", 7), std::string("[\"a\0b\"]", 7),
                 "[1" + std::string(400, '0') + "]", nested(513), std::string(100000, '['),
                 std::string(100000, '[') + std::string(100000, ']'), std::string(50000, '{')});
  for (const std::string& text : corpus) {
    SCOPED_TRACE(text.substr(0, 40));
    std::shared_ptr<NYBError> error;
    EXPECT_TRUE(parse(text, &error).isAbsent());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), kNYBCocoaErrorDomain);
    EXPECT_EQ(error->code(), kNYBPropertyListReadCorruptError);
    EXPECT_NE(error->localizedDescription().find("JSON text"), std::string::npos)
        << error->localizedDescription();
    EXPECT_TRUE(parse(text).isAbsent()) << "without an error pointer";
  }

  // Writing is bounded at the same depth as reading.
  EXPECT_EQ(parse(nested(512)), nestedValue(512));
  EXPECT_EQ(write(nestedValue(512)), nested(512));
  EXPECT_NE(writeFailure(nestedValue(513)).find("nested"), std::string::npos);
}

TEST(JSONSerialization, ValuesJSONCannotHoldFailToWrite) {
  const double inf = std::numeric_limits<double>::infinity();
  const auto object = NYBError::errorWithDescription("d", 1, "e");
  const std::pair<NYBDynamicValue, std::string> cases[] = {
      {NYBDate(0), "Invalid type in JSON write (NYBDate)."},
      {NYBData(std::string_view("x")), "Invalid type in JSON write (NYBData)."},
      {*NYBURL::URLWithString("https://example.com"), "Invalid type in JSON write (NYBURL)."},
      {object, "Invalid type in JSON write (" + object->className() + ")."},
      {std::numeric_limits<double>::quiet_NaN(), "Invalid number value (NaN) in JSON write."},
      {-inf, "Invalid number value (infinite) in JSON write."},
      {NYBDecimal::notANumber(), "Invalid number value (NaN) in JSON write."},
      {NYBDecimal::fromString("-2e400"), "Invalid number value (out of range) in JSON write."},
      {NYBDictionary{{"a", 1}, {2, "b"}}, "Invalid (non-string) key in JSON dictionary."},
      {"\xed\xa0\x80", "UTF-8"},
      {NYBDictionary{{"ok\xc3", 1}}, "UTF-8"}};
  // Whole messages, but only the encoding is named where a string is not UTF-8.
  auto expectMessage = [](const std::string& got, const std::string& message) {
    EXPECT_TRUE(got == message || (message == "UTF-8" && got.find(message) != got.npos)) << got;
  };
  for (const auto& [value, message] : cases) {
    // Nested in an array and in a dictionary; nothing is left half-written for the next.
    expectMessage(writeFailure(NYBArray{1, value}), message);
    expectMessage(writeFailure(NYBDictionary{{"a", NYBArray{NYBDictionary{{"b", value}}}}}),
                  message);
    EXPECT_EQ(write(NYBArray{1}), "[1]");
  }
  EXPECT_EQ(write(NYBArray{NYBDecimal::fromString("1.5e300"), NYBDecimal::fromString("-1e-400")}),
            "[1.5e+300,-1e-400]");
  for (const NYBDynamicValue& top :
       {NYBDynamicValue(), NYBDynamicValue::null(), NYBDynamicValue("x"), NYBDynamicValue(1)}) {
    EXPECT_EQ(writeFailure(top), "Invalid top-level type in JSON write.");
  }
  EXPECT_TRUE(NYBJSONSerialization::dataWithJSONObject(NYBArray{inf}) == std::nullopt);
}

}  // namespace
}  // namespace nyb
