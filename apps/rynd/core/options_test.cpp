#include "core/options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace rynd {
namespace {

struct Case {
  std::vector<std::string> arguments;
  bool enable;
  bool usage;
};

Options Parse(const Case &given) {
  std::vector<std::string> words = {"/usr/sbin/rynd"};
  words.insert(words.end(), given.arguments.begin(), given.arguments.end());
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;  // a new scan
  return ParseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(Options, OnlyEnableGoesOn) {
  const Case cases[] = {
      {{}, false, false},
      {{"-e"}, true, false},
      {{"--enableryns"}, true, false},
      {{"--en"}, true, false},
      {{"-ee", "operand"}, true, false},
      {{"-h"}, false, true},
      {{"--help"}, false, true},
      {{"-t"}, false, true},
      {{"--test"}, false, true},
      {{"-l", "3"}, false, true},
      {{"-l3"}, false, true},
      {{"-l"}, false, true},
      {{"--loglevel"}, false, true},
      {{"--loglevel=2"}, false, true},
      {{"--enableryns=1"}, false, true},
      {{"--nothing"}, false, true},
      {{"-x"}, false, true},
      {{"-e", "-t"}, true, true},
      {{"--", "-h"}, false, false},
  };
  for (const Case &given : cases) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Options options = Parse(given);
    const std::string output = testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    const std::string shown = testing::PrintToString(given.arguments);
    EXPECT_EQ(options.enableRyns, given.enable) << shown;
    EXPECT_EQ(options.usageShown, given.usage) << shown;
    EXPECT_EQ(output, given.usage ? "Usage: /usr/sbin/rynd [options]\nvalid options are:\n"
                                    "\t--help|-h - display this help\n"
                                  : "")
        << shown;
  }
}

}  // namespace
}  // namespace rynd
