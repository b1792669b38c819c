// Guesses, line breaks, times, and that a hostile sender does not reach the terminal.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "text/escape.h"
#include "text/suggest.h"
#include "text/time.h"
#include "text/wrap.h"

namespace text {
namespace {

TEST(Suggest, CountsWhatATypistGetsWrong) {
  EXPECT_EQ(EditDistance("submit", "sumbit"), 1u);
  EXPECT_EQ(EditDistance("listen", "lsiten"), 1u);
  EXPECT_EQ(EditDistance("", "abc"), 3u);
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3u);
  EXPECT_EQ(EditDistance("ca", "abc"), 3u) << "letters are swapped or inserted between, not both";
}

TEST(Suggest, NamesTheClosestOnce) {
  const Known known[] = {
      {"ryn.listen", "listen"}, {"ryn.listen", "ryn.listen"}, {"trace", "trace"}, {"track", "track"}};
  EXPECT_EQ(Suggest("lisetn", known, 3), std::vector<std::string>{"ryn.listen"});
  EXPECT_EQ(Suggest("trase", known, 3), (std::vector<std::string>{"trace", "track"}));
  EXPECT_EQ(Suggest("trase", known, 1), std::vector<std::string>{"trace"});
  EXPECT_TRUE(Suggest("", known, 3).empty());
  EXPECT_TRUE(Suggest("zz", known, 3).empty()) << "nothing in common";
  EXPECT_EQ(DidYouMean({"a", "b", "c"}), " (did you mean a, b or c?)");
  EXPECT_EQ(DidYouMean({}), "");
}

TEST(Wrap, KeepsToTheWidthAndLosesNothing) {
  EXPECT_EQ(Wrap("one two three", 9, "1. ", "   "), "1. one\n   two\n   three\n");
  EXPECT_EQ(Wrap("one two three", 10, "1. ", "   "), "1. one two\n   three\n");
  EXPECT_EQ(Wrap("a-word-that-is-too-long for it", 8, "  ", "  "), "  a-word-that-is-too-long\n  for it\n");
  EXPECT_EQ(Wrap("\xc3\xa9\xc3\xa9 \xc3\xa9\xc3\xa9", 5, "", ""), "\xc3\xa9\xc3\xa9 \xc3\xa9\xc3\xa9\n");
  EXPECT_EQ(Wrap("", 10, "- ", "  "), "- \n");
}

TEST(Time, IsReadAsPeopleWriteIt) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  constexpr int64_t kSecond = 1'000'000;
  constexpr int64_t kNow = 1'795'284'580 * kSecond;  // 2026-11-21 19:09:40 there
  constexpr int64_t kMidnight = 1'795'215'600 * kSecond;
  const std::pair<const char *, int64_t> times[] = {
      {"now", kNow},
      {"today", kMidnight},
      {"yesterday", kMidnight - 86'400 * kSecond},
      {"-1h", kNow - 3600 * kSecond},
      {"+5min", kNow + 300 * kSecond},
      {" 1h 30min ago", kNow - 5400 * kSecond},
      {"-90", kNow - 90 * kSecond},
      {"2026-11-21", kMidnight},
      {"2026-11-21 12:00", kMidnight + 43'200 * kSecond},
      {"12:00:30.25", kMidnight + 43'230 * kSecond + 250'000},
      {"2026-11-21T12:00:00Z", kMidnight + 46'800 * kSecond},
      {"2026-11-21T12:00:00.5+02:00", kMidnight + 39'600 * kSecond + 500'000},
      {"2026-11-21 12:00 -0130", kMidnight + 52'200 * kSecond},
      {"2026-03-29 12:00", 1'774'778'400 * kSecond},  // summer time began that night
      {"@1795000000.5", 1'795'000'000 * kSecond + 500'000},
  };
  for (const auto &[text, us] : times) EXPECT_EQ(ParseTime(text, kNow), us) << text;
  for (const char *text : {"", " ", "nonsense", "-", "1h", "-1parsec", "2026-13-01", "2026-02-30", "2026-11-21 25:00",
                           "12", "2026-11-21T12:00:00+99:00", "@", "@1x", "-99999999999h", "2026-11-21 12:00 x",
                           "2026-11-21T12:00:00.", "-999999999y"}) {
    EXPECT_EQ(ParseTime(text, kNow), std::nullopt) << text;
  }
  unsetenv("TZ");
  tzset();
}

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
