// The daemon's sockets are made by the tests, which decode what arrives.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/commandLine.h"
#include "rynctl/sending/observationSender.h"
#include "rynctl/sending/submitFile.h"
#include "rynctl/toolRun.h"
#include "testing/records.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

using testing_support::ReceiveRecord;
using testing_support::Shown;

class Submit : public testing::Test {
 protected:
  void SetUp() override {
    CleanRoot();
    ASSERT_EQ(hosted::MakeFolders(hosted::RootPath(hosted::kContextFolder), 0700), 0);
    ServeKernel(0, &kernel_);
  }

  static void ServeKernel(unsigned context, base::UniqueFd *fd) {
    ASSERT_EQ(hosted::ServeUnixSocket(hosted::KernelSocketPath(context), SOCK_DGRAM, 0600, fd), 0);
  }

  /// The ids of the first records that a caller of the user context sends, taken late: what is submitted again is
  /// heard twice.
  static std::vector<std::string> TakeAll(int listening) {
    std::vector<std::string> ids;
    for (pollfd call{listening, POLLIN, 0}; ids.empty() && poll(&call, 1, 5000) == 1;) {
      const base::UniqueFd caller(accept(listening, nullptr, nullptr));
      pollfd record{caller.Get(), POLLIN, 0};
      poll(&record, 1, 5000);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      for (char first = 0; recv(caller.Get(), &first, 1, MSG_PEEK | MSG_DONTWAIT) > 0;) {
        ids.push_back(ReceiveRecord(caller.Get()).id);
      }
    }
    return ids;
  }

  static ToolResult SubmitFile(const std::string &text, std::vector<std::string> more = {}) {
    const std::string path = testing_support::ProcessRoot() / "/var/lines";
    testing_support::WriteFile(path, text);
    more.insert(more.begin(), {"submit", "--file", path});
    ToolResult result = RunTool(more);
    if (const size_t place = result.err.find(path); place != std::string::npos) {
      result.err.replace(place, path.size(), "FILE");
    }
    return result;
  }

  base::UniqueFd kernel_;
};

TEST_F(Submit, SendsWhatIsWrittenAndNothingElse) {
  // Words that look like options, lists, commands or marks are arguments all the same.
  const ToolResult result = RunTool({"submit", "--force", "ryn.a.b", "-5", "--message=", "naa.6001", "[1,2]", "", "++",
                                     "{}", "trace", "u8:7", "null", "s:--", "--", "--message", "--", "-x="});
  EXPECT_EQ(result.status, 0) << result.err;
  const hosted::RawRecord record = ReceiveRecord(kernel_.Get());
  EXPECT_EQ(record.id, "ryn.a.b");
  EXPECT_EQ(record.message, "");
  EXPECT_EQ(record.sequence, 1U);
  EXPECT_NEAR(static_cast<double>(record.microseconds), static_cast<double>(time(nullptr)) * 1e6, 60e6);
  EXPECT_EQ(Shown(record), (std::vector<std::string>{"i4:-5", "s:naa.6001", "s:[1,2]", "s:", "s:++", "s:{}", "s:trace",
                                                     "u1:7", "null", "s:--", "s:--message", "s:--", "s:-x="}));
}

TEST_F(Submit, ReachesTheLastContext) {
  base::UniqueFd last;
  ServeKernel(28, &last);
  EXPECT_EQ(RunTool({"submit", "--force", "--context", "28", "--message", "it is", "ryn.a"}).status, 0);
  EXPECT_EQ(ReceiveRecord(last.Get()).message, "it is");
}

TEST_F(Submit, RefusesWhatTheDaemonWouldDiscard) {
  // 32 bytes of header, 2 and 1 of texts with their NUL, 8 before the string and 1 behind it.
  const std::string longest(hosted::kMaxRecordSize - 32 - 2 - 1 - 8 - 1, 'x');
  EXPECT_EQ(RunTool({"submit", "--force", "r", longest}).status, 0);
  EXPECT_EQ(ReceiveRecord(kernel_.Get()).arguments.at(0).text, longest);
  const struct {
    std::vector<std::string> words;
    const char *told;
  } cases[] = {
      {{"submit", "--force", "r", longest + "x"}, "131072 bytes of at most 131071"},
      {{"submit", ""}, "the id is empty"},
      {{"submit", "--user", "ryn.storage.apd.start"}, "only ids that begin with \"ryn.user.\""},
      {{"submit", "ryn.a", "i8:300"}, "-128 to 127"},
      {{"submit"}, "ID is required"},
      {{"submit", "--context", "29", "ryn.a"}, "0 to 28"},
      {{"submit", "--timeout", "nan", "ryn.a"}, "seconds"},
      {{"submit", "--file", "-", "ryn.a"}, "excludes"},
      {{"submit", "--file", "-", "--speed", "-1"}, "--speed must be"},
      {{"submit", "--file", "-", "--speed", "fast"}, "--speed must be"},
  };
  for (const auto &one : cases) {
    const ToolResult result = RunTool(one.words);
    EXPECT_EQ(result.status, 2) << one.told;
    EXPECT_NE(result.err.find(one.told), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "");
}

TEST_F(Submit, RefusesWhatNoCorrelatorMakesAnythingOf) {
  constexpr char kTimeout[] = "ryn.storage.apd.timeout", kTakes[] = "It takes DEVICE (s), SECONDS (i32)";
  const struct {
    Words words;
    std::vector<const char *> told;
  } cases[] = {
      {{"ryn.storage.adp.start", "naa.1"}, {"no correlator handles", "did you mean ryn.storage.apd.start", "--force"}},
      {{"storage.apd.start", "naa.1"}, {"did you mean ryn.storage.apd.start"}},
      {{"ryn.user.unheard.of"}, {"no correlator handles ryn.user.unheard.of"}},
      {{kTimeout, "naa.1"}, {"1 argument where 2 are wanted", kTakes}},
      {{kTimeout, "naa.1", "140", "9"}, {"3 arguments where 2 are wanted", kTakes}},
      {{kTimeout, "naa.1", "soon"}, {"argument 2 is text where an integer is wanted (i32:N)", kTakes}},
      {{kTimeout, "5", "140"}, {"argument 1 is an integer where text is wanted (s:TEXT)"}},
      {{kTimeout, "naa.1", "null"}, {"argument 2 is text"}},
      {{kTimeout, "naa.1", "4294967296"}, {"argument 2 does not fit into the 32 bits"}},
      {{kTimeout, "naa.1", "-2147483649"}, {"argument 2 does not fit into the 32 bits"}},
      {{"ryn.uw.core.dumped", "a", "1"}, {"2 arguments where 3 or 4 are wanted", "KEY_ID (s, optional)"}},
  };
  for (auto one : cases) {
    one.words.insert(one.words.begin(), "submit");
    const ToolResult result = RunTool(one.words);
    EXPECT_EQ(result.status, 2) << result.err;
    for (const char *told : one.told) EXPECT_NE(result.err.find(told), std::string::npos) << result.err;
    EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "");
    one.words.emplace_back("--force");
    EXPECT_EQ(RunTool(one.words).status, 0);
    EXPECT_NE(ReceiveRecord(kernel_.Get()).id, "");
  }
  // What the daemon reads is sent: any integer type that holds the value, a null text, an argument that may be missing.
  const Words fits[] = {{kTimeout, "null", "u64:0xffffffff"},
                        {kTimeout, "s:5", "i8:-1"},
                        {"ryn.uw.core.dumped", "a", "1", "c"},
                        {"ryn.iscsi.connection.error", "a", "1", "null"}};
  for (Words words : fits) {
    words.insert(words.begin(), "submit");
    EXPECT_EQ(RunTool(words).status, 0) << words[1];
  }
  while (!ReceiveRecord(kernel_.Get()).id.empty()) continue;
  const ToolResult result = SubmitFile(
      "{\"id\":\"ryn.storage.apd.exit\",\"args\":[\"a\"]}\n"
      "{\"id\":\"ryn.storage.apd.exit\"}\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find(":2: ryn.storage.apd.exit: 0 arguments where 1 is wanted"), std::string::npos)
      << result.err;
  EXPECT_EQ(ReceiveRecord(kernel_.Get()).arguments.size(), 1U);
  EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "");
}

TEST_F(Submit, SaysThatNoDaemonIsThere) {
  kernel_.Reset();  // its file stays, as after a crash
  const std::string path = hosted::KernelSocketPath(0);
  const std::string told = "rynctl: no daemon serves " + path + " (start rynd, or give its root with --root)\n";
  ToolResult result = RunTool({"submit", "--force", "ryn.a"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, told);
  unlink(path.c_str());
  EXPECT_EQ(RunTool({"submit", "--force", "ryn.a"}).err, told);
  if (geteuid() == 0) return;  // root has every permission
  chmod(hosted::RootPath(hosted::kContextFolder).c_str(), 0);
  result = RunTool({"submit", "--force", "ryn.a"});
  chmod(hosted::RootPath(hosted::kContextFolder).c_str(), 0700);
  EXPECT_NE(result.err.find("no permission for " + path), std::string::npos) << result.err;
}

TEST_F(Submit, WaitsForAFullQueueWithinBounds) {
  std::ostringstream err;
  Patience patience{err, std::chrono::milliseconds(300), std::chrono::milliseconds(50)};
  ObservationSender sender(&patience);
  std::string error;
  Submission submission;
  submission.record.id = "ryn.a";
  int sent = 0;
  while ((error = sender.Send(submission)).empty() && sent < 100'000) ++sent;
  EXPECT_NE(error.find("timed out"), std::string::npos) << error;
  EXPECT_FALSE(sender.Send(submission).empty());
  const std::string notice = err.str();
  EXPECT_NE(notice.find("rynctl: waiting: "), std::string::npos) << notice;
  EXPECT_EQ(notice.find('\n'), notice.size() - 1);  // said once

  // The wait ends as soon as there is room, and every record arrives in order.
  patience.limit.reset();
  std::thread late([&] { error = sender.Send(submission); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  for (int i = 0; i < sent; ++i) EXPECT_EQ(ReceiveRecord(kernel_.Get()).sequence, static_cast<uint64_t>(i) + 1);
  late.join();
  EXPECT_EQ(error, "");
  EXPECT_EQ(RunTool({"submit", "--force", "--timeout", "0.05", "ryn.a"}).status, 0);
  // It finds a daemon that was started anew, seen to be away or not.
  kernel_.Reset();
  EXPECT_NE(sender.Send(submission).find("no daemon serves"), std::string::npos);
  for (int i = 0; i < 2; ++i) {
    kernel_.Reset();
    ServeKernel(0, &kernel_);
    EXPECT_EQ(sender.Send(submission), "");
    EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "ryn.a");
  }
}

TEST_F(Submit, WaitsForADaemonThatStarts) {
  kernel_.Reset();
  base::UniqueFd user;
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    CleanRoot();
    ASSERT_EQ(hosted::MakeFolders(hosted::RootPath(hosted::kContextFolder), 0700), 0);
    ServeKernel(0, &kernel_);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(hosted::ServeUnixSocket(hosted::RootPath(hosted::kUserSocket), SOCK_SEQPACKET, 0660, &user), 0);
    EXPECT_EQ(TakeAll(user.Get()), std::vector<std::string>{"ryn.user.a"});
  });
  EXPECT_EQ(RunTool({"submit", "--force", "--wait", "60", "ryn.a"}).err, "");
  EXPECT_EQ(RunTool({"submit", "--force", "--wait", "60", "--user", "ryn.user.a"}).err, "");
  late.join();
  EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "ryn.a");
  kernel_.Reset();
  EXPECT_EQ(RunTool({"submit", "--force", "--wait", "0.05", "ryn.a"}).err,
            "rynctl: still no daemon serves " + hosted::KernelSocketPath(0) +
                " (start rynd, or give its root with --root)\n");
}

TEST_F(Submit, SendsTheLinesOfAFile) {
  const ToolResult result = SubmitFile(
      R"({"id":"ryn.a","args":["text",5,-3,18446744073709551615,null,{"u64":16},{"i8":-1},"i32:5"],"message":"m"})"
      "\n\n  \t\r\n"
      R"({"id":"ryn.b","context":0,"user":false})",
      {"--force"});
  EXPECT_EQ(result.status, 0) << result.err;
  const hosted::RawRecord first = ReceiveRecord(kernel_.Get());
  EXPECT_EQ(first.message, "m");
  EXPECT_EQ(Shown(first), (std::vector<std::string>{"s:text", "i4:5", "i4:-3", "u8:18446744073709551615", "null",
                                                    "u8:16", "i1:-1", "s:i32:5"}));
  const hosted::RawRecord second = ReceiveRecord(kernel_.Get());
  EXPECT_EQ(second.id, "ryn.b");
  EXPECT_EQ(second.sequence, 2U);
}

TEST_F(Submit, StopsAtTheFirstWrongLineAndNamesIt) {
  const struct {
    const char *line, *told;
  } cases[] = {
      {R"({"id":"ryn.a")", "no JSON at column 14: syntax error while parsing object - unexpected end of input"},
      {R"({"id" "ryn.a"})", "no JSON at column 13: syntax error while parsing object separator - unexpected string"},
      {R"(["ryn.a"])", "must be a JSON object"},
      {R"({"args":[]})", "\"id\" is missing"},
      {R"({"id":5})", "\"id\" must be text"},
      {R"({"id":""})", "the id is empty"},
      {R"({"id":"ryn.a","argz":[]})", "unknown key \"argz\""},
      {R"({"id":"ryn.a","args":5})", "\"args\" must be an array"},
      {R"({"id":"ryn.a","args":[1,1.5]})", "argument 2 must be an integer of at most 64 bits, not 1.5"},
      {R"({"id":"ryn.a","args":[{"u8":256}]})", "0 to 255"},
      {R"({"id":"ryn.a","args":[{"u7":1}]})", "unknown type \"u7\""},
      {R"({"id":"ryn.a","args":[{"u8":1,"i8":1}]})", "one key"},
      {R"({"id":"ryn.a","args":["a\u0000b"]})", "argument 1 holds a NUL"},
      {R"({"id":"ryn.a","offset":-1})", "\"offset\" must be"},
      {R"({"id":"ryn.a","offset":1e300})", "\"offset\" must be"},
      {R"({"id":"ryn.a","context":29})", "\"context\" must be 0 to 28"},
      {R"({"id":"ryn.a","context":-1})", "\"context\" must be 0 to 28"},
      {R"({"id":"ryn.a","user":1})", "\"user\" must be"},
      {R"({"id":"ryn.user.a","user":true,"context":1})", "exclude each other"},
      {R"({"id":"ryn.a","user":true})", "only ids that begin with"},
      {"\x1b[2J", "no JSON at column 1"},
  };
  for (const auto &one : cases) {
    const ToolResult result =
        SubmitFile("{\"id\":\"ryn.first\"}\n\n" + std::string(one.line) + "\n{\"id\":\"ryn.no\"}\n", {"--force"});
    EXPECT_EQ(result.status, 1) << one.line;
    EXPECT_EQ(result.err.rfind("rynctl: FILE:3: ", 0), 0U) << result.err;
    EXPECT_NE(result.err.find(one.told), std::string::npos) << result.err;
    EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "ryn.first") << one.line;
    EXPECT_EQ(ReceiveRecord(kernel_.Get()).id, "") << one.line;
  }
  kernel_.Reset();
  EXPECT_NE(SubmitFile("\n{\"id\":\"ryn.a\"}", {"--force"}).err.find("FILE:2: no daemon serves"), std::string::npos);
  EXPECT_EQ(RunTool({"submit", "--file", "/no/such"}).err, "rynctl: cannot open /no/such: No such file or directory\n");
  EXPECT_EQ(RunTool({"submit", "--file", "/tmp"}).status, 1);
}

TEST_F(Submit, KeepsTheTimingOfAFile) {
  using std::chrono::system_clock;
  const auto start =
      std::chrono::duration_cast<std::chrono::microseconds>(system_clock::now().time_since_epoch()).count();
  const std::string lines = R"({"id":"ryn.a","offset":20}
{"id":"ryn.b","offset":5}
{"id":"ryn.c","offset":40}
)";
  EXPECT_EQ(SubmitFile(lines, {"--force", "--speed", "200"}).status, 0);
  // None is early; how late they are is the machine's. An offset that goes backwards: at once.
  uint64_t before = static_cast<uint64_t>(start);
  for (const uint64_t earliest : {99'000u, 99'000u, 199'000u}) {
    const uint64_t sent = ReceiveRecord(kernel_.Get()).microseconds;
    EXPECT_GE(sent, static_cast<uint64_t>(start) + earliest);
    EXPECT_GE(sent, before);
    before = sent;
  }
  for (const char *speed : {"0", "max"}) EXPECT_EQ(SubmitFile(lines, {"--force", "--speed", speed}).status, 0);
}

}  // namespace
}  // namespace rynctl
