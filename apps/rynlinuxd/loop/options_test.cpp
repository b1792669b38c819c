// The command line and the file behind it.
#include "loop/options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include "testing/testRoot.h"

namespace rynlinuxd {
namespace {

Options Parse(std::vector<std::string> words, std::string *error) {
  words.insert(words.begin(), "rynlinuxd");
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;
  return ParseOptions(static_cast<int>(words.size()), argv.data(), error);
}

TEST(LinuxOptions, TheCommandLineGoesBeforeTheFile) {
  const testing_support::TestRoot root;
  const std::string file = root / "/linux.conf";
  testing_support::WriteFile(file, "# links\n nics = veth*, tap? \n\nsources=links\r\npoll = 7\n");
  std::string error;
  const Options options = Parse({"--config", file, "--poll=3", "--netlink-buffer", "4096", "--dry-run"}, &error);
  EXPECT_EQ(error, "");
  EXPECT_EQ(options.nics, (std::vector<std::string>{"veth*", "tap?"}));
  EXPECT_EQ(options.sources, std::vector<std::string>{"links"});
  EXPECT_TRUE(options.pollS == 3 && options.netlinkBuffer == 4096 && options.dryRun);
}

TEST(LinuxOptions, WhatIsWrongIsNamed) {
  const testing_support::TestRoot root;
  const std::string file = root / "/linux.conf";
  const struct {
    std::vector<std::string> words;
    const char *text, *named;
  } kCases[] = {
      {{"--frobnicate"}, "", "'--frobnicate'"},
      {{"--poll"}, "", "'--poll'"},
      {{"links"}, "", "'links'"},
      {{"--poll", "0"}, "", "poll: '0'"},
      {{"--netlink-buffer", "4k"}, "", "netlink-buffer: '4k'"},
      {{"--config", "/no/such"}, "", "/no/such: No such file"},
      {{"--config", file}, "a = b\n", "line 1: no setting is called 'a'"},
      {{"--config", file}, "#\npoll\n", "line 2: 'poll' is not of the form"},
      {{"--config", file}, "poll = -1", "line 1: poll: '-1'"},
  };
  for (const auto &[words, text, named] : kCases) {
    testing_support::WriteFile(file, text);
    std::string error;
    EXPECT_EQ(Parse(words, &error).action, Options::Action::kWrong);
    EXPECT_NE(error.find(named), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace rynlinuxd
