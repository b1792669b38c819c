// Guesses and line breaks.
#include <gtest/gtest.h>

#include "text/suggest.h"
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

}  // namespace
}  // namespace text
