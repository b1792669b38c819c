// Every way to write an argument, and the ranges that are told to whoever misses them.
#include "rynctl/sending/argument.h"

#include <gtest/gtest.h>

namespace rynctl {
namespace {

using hosted::ArgumentKind;

struct Good {
  const char *word;
  ArgumentKind kind;
  unsigned width;
  uint64_t bits;
  const char *text;
};

constexpr Good kGood[] = {
    {"0", ArgumentKind::kSigned, 4, 0, ""},
    {"-5", ArgumentKind::kSigned, 4, static_cast<uint64_t>(-5), ""},
    {"0x10", ArgumentKind::kSigned, 4, 16, ""},
    {"-0x10", ArgumentKind::kSigned, 4, static_cast<uint64_t>(-16), ""},
    {"2147483647", ArgumentKind::kSigned, 4, 2147483647, ""},
    {"2147483648", ArgumentKind::kSigned, 8, 2147483648, ""},
    {"-2147483648", ArgumentKind::kSigned, 4, static_cast<uint64_t>(INT32_MIN), ""},
    {"-2147483649", ArgumentKind::kSigned, 8, static_cast<uint64_t>(INT64_C(-2147483649)), ""},
    {"-9223372036854775808", ArgumentKind::kSigned, 8, 0x8000000000000000, ""},
    {"9223372036854775808", ArgumentKind::kUnsigned, 8, 0x8000000000000000, ""},
    {"0xffffffffffffffff", ArgumentKind::kUnsigned, 8, UINT64_MAX, ""},
    {"i8:-128", ArgumentKind::kSigned, 1, static_cast<uint64_t>(-128), ""},
    {"i16:32767", ArgumentKind::kSigned, 2, 32767, ""},
    {"i64:-1", ArgumentKind::kSigned, 8, UINT64_MAX, ""},
    {"u8:0xFF", ArgumentKind::kUnsigned, 1, 255, ""},
    {"u8:-0", ArgumentKind::kUnsigned, 1, 0, ""},
    {"u32:4294967295", ArgumentKind::kUnsigned, 4, 4294967295, ""},
    {"u64:18446744073709551615", ArgumentKind::kUnsigned, 8, UINT64_MAX, ""},
    {"null", ArgumentKind::kNullString, 0, 0, ""},
    {"s:null", ArgumentKind::kString, 0, 0, "null"},
    {"s:", ArgumentKind::kString, 0, 0, ""},
    {"s:i32:5", ArgumentKind::kString, 0, 0, "i32:5"},
    {"", ArgumentKind::kString, 0, 0, ""},
    {"-", ArgumentKind::kString, 0, 0, "-"},
    {"0x", ArgumentKind::kString, 0, 0, "0x"},
    {"naa.6001", ArgumentKind::kString, 0, 0, "naa.6001"},
    {"5 ", ArgumentKind::kString, 0, 0, "5 "},
    {"+5", ArgumentKind::kString, 0, 0, "+5"},
    {"1.5", ArgumentKind::kString, 0, 0, "1.5"},
    {"12ab", ArgumentKind::kString, 0, 0, "12ab"},
    {"i128:5", ArgumentKind::kString, 0, 0, "i128:5"},
    {"[1,2]", ArgumentKind::kString, 0, 0, "[1,2]"},
};

TEST(Argument, ReadsEveryWayOfWritingOne) {
  for (const Good &good : kGood) {
    SCOPED_TRACE(good.word);
    std::string error;
    const std::optional<hosted::RawArgument> argument = ParseArgument(good.word, &error);
    ASSERT_TRUE(argument) << error;
    EXPECT_EQ(argument->kind, good.kind);
    EXPECT_EQ(argument->width, good.width);
    EXPECT_EQ(argument->bits, good.bits);
    EXPECT_EQ(argument->text, good.text);
  }
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
