#include "hosted/host/hostTree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <limits>
#include <thread>

#include "hosted/host/actionsLog.h"
#include "hosted/testSupport.h"

namespace hosted {
namespace {

constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
constexpr int64_t kMost = std::numeric_limits<int64_t>::max();

TEST(HostTree, MakesOneComponentOfAnyName) {
  const std::pair<const char *, const char *> rows[] = {
      {"naa.600508b1001c", "naa.600508b1001c"},
      {"", "%"},
      {nullptr, "%00"},
      {".", "%2E"},
      {"..", "%2E."},
      {"../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd"},
      {".hidden.name", "%2Ehidden.name"},
      {"a/b%c", "a%2Fb%25c"},
      {"%00", "%2500"},
      {"a\tb\n\x01\x1f\x7f", "a%09b%0A%01%1F%7F"},
      {"vm name: \xc3\xa4", "vm name: \xc3\xa4"},
  };
  for (const auto &[name, component] : rows) EXPECT_EQ(HostComponent(name), component);
}

TEST(HostTree, ReadsOneValueWithAtMostOneLineEnd) {
  LogListener log;
  const std::pair<std::string, std::string> values[] = {
      {"text\n", "text"}, {"text", "text"}, {"", ""}, {"\n", ""}, {" two words \n", " two words "}};
  for (const auto &[content, value] : values) {
    PutHost("test/text", content);
    std::string text = "before";
    EXPECT_EQ(ReadHostText("test/text", &text), 0);
    EXPECT_EQ(text, value);
  }
  std::string text;
  EXPECT_EQ(ReadHostText("test/missing", &text), ENOENT);
  EXPECT_EQ(ReadHostText("missing/missing", &text), ENOENT);
  EXPECT_EQ(ReadHostText("test/" + std::string(300, 'x'), &text), ENOENT);
  EXPECT_EQ(log.NextMessage(), "");
  for (const std::string &content : {std::string("a\nb"), std::string("a\n\n"), std::string("a\0b", 3)}) {
    PutHost("test/text", content);
    EXPECT_EQ(ReadHostText("test/text", &text), EINVAL);
    EXPECT_TRUE(log.NextMessage().starts_with("Cannot read " + HostTreePath("test/text") + ": it holds "));
  }
  PutHost("test/text", std::string(2'000'000, 'x'));
  EXPECT_EQ(ReadHostText("test/text", &text), EFBIG);
  EXPECT_EQ(ReadHostText("test", &text), EISDIR);
  EXPECT_EQ(ReadHostText("test/text/below", &text), ENOTDIR);
  ASSERT_EQ(mkfifo(HostTreePath("test/pipe").c_str(), 0600), 0);
  EXPECT_EQ(ReadHostText("test/pipe", &text), EINVAL) << "without a wait for its writer";
}

TEST(HostTree, ReadsIntegersExactly) {
  LogListener log;  // keeps the failures off the terminal
  const auto read = [](const std::string &text, int64_t least, int64_t most, int64_t *value) {
    PutHost("test/number", text + "\n");
    return ReadHostInteger("test/number", least, most, value);
  };
  const std::pair<const char *, int64_t> good[] = {
      {"0", 0}, {"+7", 7}, {"-7", -7}, {"007", 7}, {"9223372036854775807", kMost}, {"-9223372036854775808", kLeast}};
  for (const auto &[text, expected] : good) {
    int64_t value = 1;
    EXPECT_EQ(read(text, kLeast, kMost, &value), 0) << text;
    EXPECT_EQ(value, expected) << text;
  }
  int64_t untouched = 5;
  for (const char *text : {"9223372036854775808", "-9223372036854775809", "", "+", "-", "+-1", "--1", " 1", "1 ", "1x",
                           "0x10", "1.5", "1\r", "1 2", "on"}) {
    EXPECT_EQ(read(text, kLeast, kMost, &untouched), EINVAL) << text;
  }
  EXPECT_EQ(read("2", 0, 1, &untouched), EINVAL);
  EXPECT_EQ(read("-1", 0, 1, &untouched), EINVAL);
  EXPECT_EQ(untouched, 5);
  EXPECT_EQ(read("1", 0, 1, &untouched), 0);
  const std::pair<const char *, bool> pairs[] = {{"3 -4", true}, {"3 \t -4", true}, {"3", false},   {"3 ", false},
                                                 {"3-4", false}, {"3 -4 5", false}, {"3 x", false}, {"", false}};
  for (const auto &[text, isGood] : pairs) {
    int64_t values[2] = {};
    EXPECT_EQ(ParseIntegers(text, kLeast, kMost, values), isGood) << text;
    EXPECT_TRUE(!isGood || values[0] + values[1] == -1) << text;
  }
}

TEST(HostTree, ReplacesFilesAsAWhole) {
  const std::string first(5000, 'a'), second(7000, 'b');
  ASSERT_EQ(WriteHostText("test/made/here", first), 0);
  EXPECT_EQ(testing_support::ReadFile(HostTreePath("test/made/here")), first + "\n");
  std::thread writer([&] {
    for (int i = 0; i < 100; ++i) EXPECT_EQ(WriteHostText("test/made/here", i % 2 == 0 ? second : first), 0);
  });
  for (int i = 0; i < 500; ++i) {
    std::string text;
    ASSERT_EQ(ReadHostText("test/made/here", &text), 0);
    ASSERT_TRUE(text == first || text == second) << text.size();
  }
  writer.join();
  struct stat status {};
  ASSERT_EQ(stat(HostTreePath("test/made/here").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);
  const std::filesystem::directory_iterator left(HostTreePath("test/made"));
  EXPECT_EQ(std::distance(begin(left), end(left)), 1);
}

TEST(HostTree, TellsWhatItCannotWrite) {
  LogListener log;
  PutHost("test/pipes/file", "x");
  ASSERT_EQ(mkfifo(HostTreePath("test/pipes/.new").c_str(), 0600), 0);
  EXPECT_EQ(WriteHostText("test/pipes/file", "y"), 0) << "and waits for nobody";
  EXPECT_EQ(testing_support::ReadFile(HostTreePath("test/pipes/file")), "y\n");
  PutHost("test/file", "x");
  EXPECT_EQ(WriteHostText("test/file/below", "y"), ENOTDIR);
  EXPECT_TRUE(log.NextMessage().starts_with("Cannot write " + HostTreePath("test/file/below") + ": "));
  std::filesystem::create_directories(HostTreePath("test/folder"));
  EXPECT_EQ(WriteHostText("test/folder", "y"), EISDIR);
  EXPECT_TRUE(log.NextMessage().starts_with("Cannot write " + HostTreePath("test/folder") + ": "));
  EXPECT_FALSE(std::filesystem::exists(HostTreePath("test/.new"))) << "nothing is left behind";
}

TEST(ActionsLog, KeepsLinesWholeAndInOrder) {
  const std::string path = RootPath(kActionsLog);
  std::filesystem::remove(path);
  EXPECT_EQ(RecordAction("vm/kill", {int64_t{-5}}), 0);
  EXPECT_EQ(RecordAction("storage/swap/reconfigure", {}), 0);
  EXPECT_EQ(RecordAction("a", {std::string_view("tab\tline\nback\\slash"), std::string_view(""), int64_t{7}}), 0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 50; ++k) RecordAction("many", {std::string_view("text")});
    });
  }
  for (std::thread &thread : threads) thread.join();

  std::vector<std::string> lines;
  uint64_t last = 0;
  for (const std::string &line : testing_support::Lines(testing_support::ReadFile(path))) {
    const uint64_t time = std::stoull(line);
    EXPECT_GE(time, last);
    last = time;
    lines.push_back(line.substr(line.find('\t') + 1));
  }
  ASSERT_EQ(lines.size(), 203u);
  EXPECT_EQ(lines[0], "vm/kill\t-5");
  EXPECT_EQ(lines[1], "storage/swap/reconfigure");
  EXPECT_EQ(lines[2], "a\ttab\\tline\\nback\\\\slash\t\t7");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "many\ttext"), 200);
}

TEST(ActionsLog, LeavesNoHalfLinesAndFollowsNoLinks) {
  LogListener log;
  const std::string path = RootPath(kActionsLog), other = RootPath("/other");
  testing_support::WriteFile(path, "1\twhole\n2\thalf");
  // A full disk: a file may not grow by more than a part of the next line.
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit full{30, before.rlim_max};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  const int error = RecordAction("does/not/fit/any/more", {});
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, handler);
  EXPECT_EQ(error, ENOSPC);
  EXPECT_EQ(testing_support::ReadFile(path), "1\twhole\n2\thalf");
  EXPECT_EQ(RecordAction("fits", {}), 0);
  EXPECT_TRUE(testing_support::ReadFile(path).starts_with("1\twhole\n2\thalf\n1")) << testing_support::ReadFile(path);
  EXPECT_TRUE(testing_support::ReadFile(path).ends_with("\tfits\n"));
  // Nothing but a file of its own is written to, and nobody waited for.
  std::filesystem::remove(path);
  testing_support::WriteFile(other, "");
  std::filesystem::create_symlink(other, path);
  EXPECT_EQ(RecordAction("a", {}), ELOOP);
  EXPECT_EQ(testing_support::ReadFile(other), "");
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_NE(RecordAction("a", {}), 0);
  const base::UniqueFd reader(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_EQ(RecordAction("a", {}), EINVAL);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace hosted
