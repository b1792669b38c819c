#include "core/options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace rynd {
namespace {

/// The options that the command line `rynd LINE` gives, whose words are a blank apart.
Options Parse(const std::string &line) {
  std::istringstream stream("/usr/sbin/rynd " + line);
  std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;  // a new scan
  return ParseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(Options, OnlyEnableGoesOn) {
  const struct {
    bool enable, usage;
    std::vector<std::string> given;
  } cases[] = {{false, false, {"", "-- -h"}},
               {true, false, {"-e", "--enableryns", "--en", "-ee operand"}},
               {false,
                true,
                {"-h", "--help", "-t", "--test", "-l 3", "-l3", "-l", "--loglevel", "--loglevel=2", "--enableryns=1",
                 "--nothing", "-x"}},
               {true, true, {"-e -t"}}};
  for (const auto &[enable, usage, given] : cases) {
    for (const std::string &line : given) {
      SCOPED_TRACE(line);
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
      const Options options = Parse(line);
      const std::string output = testing::internal::GetCapturedStdout();
      testing::internal::GetCapturedStderr();
      EXPECT_EQ(options.enableRyns, enable);
      EXPECT_EQ(options.usageShown, usage);
      EXPECT_EQ(output,
                usage ? "Usage: /usr/sbin/rynd [options]\nvalid options are:\n\t--help|-h - display this help\n" : "");
    }
  }
}

}  // namespace
}  // namespace rynd
