// A hostile sender must not reach the terminal.
#include "text/escape.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace text {
namespace {

TEST(Escape, WritesOutWhatSteersATerminal) {
  const struct {
    std::string text;
    const char *escaped;
  } cases[] = {
      {"plain \xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "plain \xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
      {"\x1b]0;title\x07\x7f", "\\x1b]0;title\\x07\\x7f"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"\xc2\x9b\x33\x31m", "\\u009b31m"},    // a C1 control sequence introducer in UTF-8
      {"\x9b\x33\x31m", "\\x9b31m"},          // and as a bare byte
      {"\xe2\x80\xae evil", "\\u202e evil"},  // turns the writing direction
      {"\xe2\x80\xa8\xe2\x81\xa9", "\\u2028\\u2069"},
      {"\xc0\x9b\xe0\x80\x9b", "\\xc0\\x9b\\xe0\\x80\\x9b"},  // overlong
      {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
      {"cut \xe2\x82", "cut \\xe2\\x82"},
  };
  for (const auto &one : cases) EXPECT_EQ(EscapeForTerminal(one.text), one.escaped);
}

TEST(Escape, LeavesNothingButTextOfAnyBytes) {
  std::mt19937 random(2);
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (int i = 0; i < 40; ++i) text += static_cast<char>(random());
    const std::string escaped = EscapeForTerminal(text);
    EXPECT_EQ(EscapeForTerminal(escaped), escaped);
    for (const char c : escaped) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  }
}

}  // namespace
}  // namespace text
