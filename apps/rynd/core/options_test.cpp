#include "core/options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace rynd {
namespace {

using Words = std::vector<std::string>;

Options Parse(Words words) {
  words.insert(words.begin(), "/usr/sbin/rynd");
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;  // a new scan
  return ParseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(Options, OnlyEnableGoesOn) {
  const struct {
    bool enable, usage;
    std::vector<Words> given;
  } cases[] = {{false, false, {{}, {"--", "-h"}}},
               {true, false, {{"-e"}, {"--enableryns"}, {"--en"}, {"-ee", "operand"}}},
               {false,
                true,
                {{"-h"},
                 {"--help"},
                 {"-t"},
                 {"--test"},
                 {"-l", "3"},
                 {"-l3"},
                 {"-l"},
                 {"--loglevel"},
                 {"--loglevel=2"},
                 {"--enableryns=1"},
                 {"--nothing"},
                 {"-x"}}},
               {true, true, {{"-e", "-t"}}}};
  for (const auto &[enable, usage, given] : cases) {
    for (const Words &words : given) {
      SCOPED_TRACE(testing::PrintToString(words));
      testing::internal::CaptureStdout();
      testing::internal::CaptureStderr();
      const Options options = Parse(words);
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
