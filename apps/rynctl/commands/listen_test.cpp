// The senders are the tests' own, over real sockets.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "eventRecord/eventReceiver.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "rynctl/showing/testEvent.h"
#include "rynctl/toolRun.h"
#include "testing/testRoot.h"

namespace rynctl {
namespace {

using Bytes = std::vector<std::byte>;
using Strings = std::vector<std::string>;
using testing_support::Lines;

/// A connection that has sent `bytes`.
base::UniqueFd Connect(const std::string &path, const Bytes &bytes) {
  base::UniqueFd fd;
  EXPECT_EQ(hosted::ConnectUnixSocket(path, SOCK_STREAM, &fd), 0);
  EXPECT_EQ(send(fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  return fd;
}

Bytes Cut(Bytes bytes, size_t length) {
  bytes.resize(length);
  return bytes;
}

class Listen : public testing::Test {
 protected:
  void SetUp() override { CleanRoot(); }

  /// Wait until the tool in the background accepts.
  void AwaitSocket() const {
    base::UniqueFd probe;
    ASSERT_TRUE(testing_support::WaitUntil([&] { return hosted::ConnectUnixSocket(path_, SOCK_STREAM, &probe) == 0; }));
  }

  const std::string path_ = hosted::RootPath(hosted::kEventSocket);
};

TEST_F(Listen, PrintsEventsForPeopleUntilASignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    BackgroundTool tool({"listen"});
    AwaitSocket();
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
    Connect(path_, EventBytes(kApdStart, {"naa.\x1b[2J"}));
    Connect(path_, Cut(EventBytes(kApdStart, {"naa.6001"}), 100));
    Connect(path_, {});  // a look whether somebody serves the socket is no event
    tool.Signal(signal);
    const ToolResult &result = tool.Result();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "rynctl: listening on " + path_ + "; events that waited come within 60 seconds\n");
    const Strings lines = Lines(result.out);
    ASSERT_EQ(lines.size(), 2U) << result.out;
    EXPECT_NE(lines[0].find(".123  PROBLEM  amb.problem.storage.apd.start  Device or filesystem with identifier "
                            "[naa.\\x1b[2J] has"),
              std::string::npos)
        << lines[0];
    EXPECT_NE(lines[1].find("truncated: 100 of "), std::string::npos) << lines[1];
    EXPECT_NE(access(path_.c_str(), F_OK), 0);
  }
}

TEST_F(Listen, PrintsHundredConnectionsInTheirOrderAsJson) {
  BackgroundTool tool({"listen", "--json", "--count", "100"});
  AwaitSocket();
  const base::UniqueFd hanging = Connect(path_, Cut(EventBytes(kApdStart, {"never"}), 20));
  for (int i = 0; i < 100; ++i) Connect(path_, EventBytes(kApdStart, {std::to_string(i)}));
  const ToolResult &result = tool.Result();
  EXPECT_EQ(result.status, 0);
  const Strings lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 100U);
  for (size_t i = 0; i < 100; ++i) EXPECT_EQ(nlohmann::json::parse(lines[i])["args"][0], std::to_string(i));
}

TEST_F(Listen, LeavesALiveAgentItsSocketAndReplacesAStaleOne) {
  ASSERT_EQ(hosted::MakeFolders(testing_support::ProcessRoot() / "/var/run/corvane", 0755), 0);
  base::UniqueFd live;
  ASSERT_EQ(hosted::ServeUnixSocket(path_, SOCK_STREAM, 0660, &live), 0);
  const ToolResult refused = RunTool({"listen", "--count", "1"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "rynctl: a live management agent serves " + path_ + " (stop it first, or give another --socket)\n");
  base::UniqueFd probe;
  EXPECT_EQ(hosted::ConnectUnixSocket(path_, SOCK_STREAM, &probe), 0);
  live.Reset();

  BackgroundTool tool({"listen", "--count", "1"});
  AwaitSocket();
  // Another agent takes the path over: its file must stay.
  unlink(path_.c_str());
  EXPECT_EQ(hosted::ServeUnixSocket(path_, SOCK_STREAM, 0660, &live), 0);
  tool.Signal(SIGTERM);
  EXPECT_EQ(tool.Result().status, 0);
  EXPECT_EQ(access(path_.c_str(), F_OK), 0);
}

TEST_F(Listen, SaysWhyItCannotServe) {
  testing_support::WriteFile(path_, "no socket");
  EXPECT_NE(RunTool({"listen"}).err.find(path_ + " is no socket"), std::string::npos);
  const std::string deep = testing_support::ProcessRoot() / ("/var/" + std::string(110, 'x'));
  EXPECT_NE(RunTool({"listen", "--socket", deep}).err.find("too long"), std::string::npos);
  EXPECT_EQ(RunTool({"listen", "--color", "mauve"}).status, 2);
  EXPECT_EQ(RunTool({"listen", "--count", "-1"}).status, 2);
}

TEST_F(Listen, TakesWhatWasSentBeforeItEnds) {
  BackgroundTool tool({"listen", "--date"});
  AwaitSocket();
  // More than are served at once; some can only be waiting to be accepted when the signal comes.
  constexpr int kSenders = 2000;
  std::thread sender([&] {
    for (int i = 0; i < kSenders; ++i) Connect(path_, EventBytes(kApdStart, {std::to_string(i)}));
    tool.Signal(SIGTERM);
  });
  sender.join();
  const Strings lines = Lines(tool.Result().out);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kSenders));
  for (int i = 0; i < kSenders; ++i) {
    EXPECT_NE(lines[static_cast<size_t>(i)].find("[" + std::to_string(i) + "]"), std::string::npos);
  }
  EXPECT_EQ(lines[0].substr(0, 8), "2023-11-");
}

TEST_F(Listen, CutsOffTheSilentAndLosesNobodyAboveItsLimit) {
  ASSERT_EQ(hosted::MakeFolders(testing_support::ProcessRoot() / "/var/run/corvane", 0755), 0);
  base::UniqueFd listening;
  ASSERT_EQ(hosted::ServeUnixSocket(path_, SOCK_STREAM | SOCK_NONBLOCK, 0660, &listening), 0);
  constexpr size_t kSenders = 276;  // twenty more than are served at once
  Strings records;
  const auto take = [&](std::span<const std::byte> record, const std::string &cut) {
    records.push_back(std::to_string(record.size()) + " " + cut.substr(0, cut.find(',')));
    return records.size() < kSenders;
  };
  eventrecord::EventReceiver receiver(listening.Get(), std::chrono::milliseconds(50), take);
  std::vector<base::UniqueFd> hanging;
  int status = 0;
  while (status == 0) {
    if (hanging.size() < kSenders) hanging.push_back(Connect(path_, Bytes(10)));
    status = receiver.Serve(nullptr);
  }
  EXPECT_EQ(status, ECANCELED);
  EXPECT_EQ(records, Strings(kSenders, "10 connection hangs"));
}

}  // namespace
}  // namespace rynctl
