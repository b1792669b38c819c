// Every way to write an argument, and the ranges that are told to whoever misses them.
#include "rynctl/sending/argument.h"

#include <gtest/gtest.h>

namespace rynctl {
namespace {

using hosted::ArgumentKind;

TEST(Argument, ReadsEveryWayOfWritingOne) {
  constexpr auto kSigned = ArgumentKind::kSigned, kUnsigned = ArgumentKind::kUnsigned;
  const struct {
    ArgumentKind kind;
    unsigned width;
    std::vector<std::pair<const char *, int64_t>> words;
  } integers[] = {
      {kSigned, 1, {{"i8:-128", -128}}},
      {kSigned, 2, {{"i16:32767", 32767}}},
      {kSigned,
       4,
       {{"0", 0}, {"-5", -5}, {"0x10", 16}, {"-0x10", -16}, {"2147483647", INT32_MAX}, {"-2147483648", INT32_MIN}}},
      {kSigned,
       8,
       {{"2147483648", 2147483648}, {"-2147483649", -2147483649}, {"-9223372036854775808", INT64_MIN}, {"i64:-1", -1}}},
      {kUnsigned, 1, {{"u8:0xFF", 255}, {"u8:-0", 0}}},
      {kUnsigned, 4, {{"u32:4294967295", UINT32_MAX}}},
      {kUnsigned,
       8,
       {{"9223372036854775808", INT64_MIN}, {"0xffffffffffffffff", -1}, {"u64:18446744073709551615", -1}}}};
  std::string error;
  for (const auto &[kind, width, words] : integers) {
    for (const auto &[word, value] : words) {
      const std::optional<hosted::RawArgument> argument = ParseArgument(word, &error);
      ASSERT_TRUE(argument) << error;
      EXPECT_TRUE(argument->kind == kind && argument->width == width) << word;
      EXPECT_EQ(argument->bits, static_cast<uint64_t>(value)) << word;
    }
  }
  const auto textOf = [&error](const std::string &word) {
    const std::optional<hosted::RawArgument> argument = ParseArgument(word, &error);
    return argument && argument->kind == ArgumentKind::kString ? argument->text : "no text";
  };
  for (const char *word : {"", "-", "0x", "naa.6001", "5 ", "+5", "1.5", "12ab", "i128:5", "[1,2]"})
    EXPECT_EQ(textOf(word), word);
  for (const char *text : {"null", "", "i32:5"}) EXPECT_EQ(textOf(std::string("s:") + text), text);
  EXPECT_EQ(ParseArgument("null", &error)->kind, ArgumentKind::kNullString);
}

TEST(Argument, RefusesNumbersOutOfRangeAndNamesTheRange) {
  const struct {
    const char *told;
    std::vector<const char *> words;
  } bad[] = {{"-128 to 127", {"i8:128", "i8:-129"}},
             {"-32768 to 32767", {"i16:0x8000"}},
             {"-2147483648 to 2147483647", {"i32:2147483648"}},
             {"-9223372036854775808 to 9223372036854775807", {"i64:9223372036854775808"}},
             {"0 to 255", {"u8:256"}},
             {"0 to 65535", {"u16:-1"}},
             {"0 to 18446744073709551615", {"u64:-1"}},
             {"64 bits", {"u64:18446744073709551616", "18446744073709551616", "0x1ffffffffffffffff"}},
             {"out of range", {"-9223372036854775809"}},
             {"decimal or 0x", {"i32:", "i32:five", "u8: 5", "i32:--5"}}};
  for (const auto &[told, words] : bad) {
    for (const char *word : words) {
      std::string error;
      EXPECT_FALSE(ParseArgument(word, &error)) << word;
      EXPECT_NE(error.find(told), std::string::npos) << error;
      EXPECT_NE(error.find("'" + std::string(word) + "'"), std::string::npos) << error;
    }
  }
}

}  // namespace
}  // namespace rynctl
