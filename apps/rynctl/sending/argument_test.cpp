// Every way to write an argument, and the ranges that are told to whoever misses them.
#include "rynctl/sending/argument.h"

#include <gtest/gtest.h>

#include "testing/records.h"

namespace rynctl {
namespace {

TEST(Argument, ReadsEveryWayOfWritingOne) {
  const std::pair<const char *, std::vector<const char *>> rows[] = {
      {"i1:-128", {"i8:-128"}},
      {"i2:32767", {"i16:32767"}},
      {"i4:0", {"0", "i32:-0"}},
      {"i4:-16", {"-16", "-0x10"}},
      {"i4:2147483647", {"2147483647"}},
      {"i4:-2147483648", {"-2147483648"}},
      {"i8:2147483648", {"2147483648"}},
      {"i8:-2147483649", {"-2147483649", "i64:-2147483649"}},
      {"i8:-9223372036854775808", {"-9223372036854775808"}},
      {"u1:255", {"u8:0xFF"}},
      {"u4:4294967295", {"u32:4294967295"}},
      {"u8:9223372036854775808", {"9223372036854775808"}},
      {"u8:18446744073709551615", {"0xffffffffffffffff", "u64:18446744073709551615"}},
      {"null", {"null"}},
  };
  std::string error;
  const auto shown = [&error](const std::string &word) {
    const std::optional<hosted::RawArgument> argument = ParseArgument(word, &error);
    return argument ? testing_support::Shown({0, 0, "", "", {*argument}}).at(0) : error;
  };
  for (const auto &[wanted, words] : rows) {
    for (const char *word : words) EXPECT_EQ(shown(word), wanted) << word;
  }
  for (const std::string word : {"", "-", "0x", "naa.6001", "5 ", "+5", "1.5", "12ab", "i128:5", "[1,2]"})
    EXPECT_EQ(shown(word), "s:" + word);
  for (const char *typed : {"s:null", "s:", "s:i32:5"}) EXPECT_EQ(shown(typed), typed);
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
