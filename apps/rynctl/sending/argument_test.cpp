// Every way to write an argument, and the ranges that are told to whoever misses them.
#include "rynctl/sending/argument.h"

#include <gtest/gtest.h>

namespace rynctl {
namespace {

using hosted::ArgumentKind;

TEST(Argument, ReadsEveryWayOfWritingOne) {
  constexpr auto kSigned = ArgumentKind::kSigned, kUnsigned = ArgumentKind::kUnsigned;
  const struct {
    const char *word;
    ArgumentKind kind;
    unsigned width;
    int64_t value;
  } integers[] = {{"0", kSigned, 4, 0},
                  {"-5", kSigned, 4, -5},
                  {"0x10", kSigned, 4, 16},
                  {"-0x10", kSigned, 4, -16},
                  {"2147483647", kSigned, 4, INT32_MAX},
                  {"2147483648", kSigned, 8, 2147483648},
                  {"-2147483648", kSigned, 4, INT32_MIN},
                  {"-2147483649", kSigned, 8, -2147483649},
                  {"-9223372036854775808", kSigned, 8, INT64_MIN},
                  {"9223372036854775808", kUnsigned, 8, INT64_MIN},
                  {"0xffffffffffffffff", kUnsigned, 8, -1},
                  {"i8:-128", kSigned, 1, -128},
                  {"i16:32767", kSigned, 2, 32767},
                  {"i64:-1", kSigned, 8, -1},
                  {"u8:0xFF", kUnsigned, 1, 255},
                  {"u8:-0", kUnsigned, 1, 0},
                  {"u32:4294967295", kUnsigned, 4, UINT32_MAX},
                  {"u64:18446744073709551615", kUnsigned, 8, -1}};
  std::string error;
  for (const auto &row : integers) {
    const std::optional<hosted::RawArgument> argument = ParseArgument(row.word, &error);
    ASSERT_TRUE(argument) << error;
    EXPECT_TRUE(argument->kind == row.kind && argument->width == row.width) << row.word;
    EXPECT_EQ(argument->bits, static_cast<uint64_t>(row.value)) << row.word;
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
  constexpr struct {
    const char *word;
    const char *told;
  } kBad[] = {
      {"i8:128", "-128 to 127"},
      {"i8:-129", "-128 to 127"},
      {"i16:0x8000", "-32768 to 32767"},
      {"i32:2147483648", "-2147483648 to 2147483647"},
      {"i64:9223372036854775808", "-9223372036854775808 to 9223372036854775807"},
      {"u8:256", "0 to 255"},
      {"u16:-1", "0 to 65535"},
      {"u64:-1", "0 to 18446744073709551615"},
      {"u64:18446744073709551616", "64 bits"},
      {"18446744073709551616", "64 bits"},
      {"-9223372036854775809", "out of range"},
      {"0x1ffffffffffffffff", "64 bits"},
      {"i32:", "decimal or 0x"},
      {"i32:five", "decimal or 0x"},
      {"u8: 5", "decimal or 0x"},
      {"i32:--5", "decimal or 0x"},
  };
  for (const auto &bad : kBad) {
    std::string error;
    EXPECT_FALSE(ParseArgument(bad.word, &error)) << bad.word;
    EXPECT_NE(error.find(bad.told), std::string::npos) << error;
    EXPECT_NE(error.find("'" + std::string(bad.word) + "'"), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace rynctl
