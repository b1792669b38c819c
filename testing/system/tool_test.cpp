// rynctl as a process: outputs that nobody reads, roots, and the examples of its help.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

#include "hosted/contexts/unixSocket.h"
#include "rynctl/showing/testEvent.h"
#include "testing/daemon.h"
#include "testing/unread.h"

namespace testing_support {
namespace {

const char kTool[] = RYND_BUILD "/bin/rynctl";
/// Outputs that nobody reads, and the signal that ends the tool there.
constexpr std::pair<Unread::Kind, int> kOutputs[] = {{Unread::Kind::kPipe, SIGTERM}, {Unread::Kind::kTerminal, SIGINT}};
const char kEventSocket[] = "/var/run/corvane/mgmtd-kprob.sock";

/// A run of the tool that writes to `out`.
class Tool : public Process {
 public:
  Tool(std::vector<std::string> words, int out)
      : Process((words.insert(words.begin(), kTool), std::move(words)), [out] {
          for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) dup2(out, fd);
        }) {}
  /// Signal it and wait for its end within a second; its exit status, or -1.
  int End(int signal) {
    Signal(signal);
    return WaitForExit(IsSlowBuild() ? 20 : 1);
  }
};

TEST(Tool, ListenTakesEventsThoughNobodyReadsItsOutputAndEnds) {
  const std::vector<std::byte> event = rynctl::EventBytes(rynctl::kApdStart, {std::string(10'000, 'x')});
  for (const auto &[kind, signal] : kOutputs) {
    const TestRoot root;
    const Unread output(kind);
    Tool tool({"listen", "--root", root / ""}, output.write.Get());
    base::UniqueFd sender;
    ASSERT_TRUE(WaitUntil([&] { return hosted::ConnectUnixSocket(root / kEventSocket, SOCK_STREAM, &sender) == 0; }));
    for (int i = 0; i < 3000; ++i) {  // 30 MB: more than it keeps
      ASSERT_EQ(hosted::ConnectUnixSocket(root / kEventSocket, SOCK_STREAM, &sender), 0);
      ASSERT_EQ(send(sender.Get(), event.data(), event.size(), MSG_NOSIGNAL), static_cast<ssize_t>(event.size()));
    }
    EXPECT_EQ(tool.End(signal), 1) << "lines were not printed";
    EXPECT_FALSE(std::filesystem::exists(root / kEventSocket));
  }
}

TEST(Tool, TraceEndsThoughNobodyReadsItsOutput) {
  RunningDaemon host;
  const base::UniqueFd kernel = ConnectKernel(host.root);
  for (const auto &[kind, signal] : kOutputs) {
    const Unread output(kind);
    Tool tool({"trace", "--root", host.root / ""}, output.write.Get());
    const std::vector<std::byte> record = MakeRecord("ryn.bootdevice.x", {}, {}, std::string(10'000, 'x'));
    // Until the daemon has nowhere left to put them.
    for (int i = 0; i < 3000; ++i) ASSERT_TRUE(SendRecord(kernel, record));
    EXPECT_EQ(tool.End(signal), 1);
  }
  EXPECT_EQ(host.daemon.Stop(), 0);
}

TEST(Tool, EndsByASignalWhileItWaitsForADaemon) {
  const TestRoot root;
  const Unread output(Unread::Kind::kPipe);
  Tool tool({"--root", root / "", "trace", "--wait", "600"}, output.write.Get());
  char line[200] = {};
  ASSERT_GT(read(output.read.Get(), line, sizeof line - 1), 0);
  EXPECT_EQ(std::string(line), "rynctl: root " + root.Path() + "\n");
  EXPECT_NE(tool.End(SIGTERM), -1);
}

/// Run a shell's `command` below `root`.
Output ShellIn(const TestRoot &root, const std::string &command) {
  return RunShell("cd " + root.Path() + " && export CORVANE_ROOT=$PWD PATH=" RYND_BUILD "/bin:$PATH && timeout 60 " +
                  command + " 2>&1");
}

TEST(Tool, ExamplesDoSomething) {
  const RunningDaemon host;
  const std::string help = ShellIn(host.root, "rynctl help submit").text, heading = "\nExamples:\n";
  ASSERT_NE(help.find(heading), std::string::npos) << help;
  WriteFile(host.root / "/examples", help.substr(help.find(heading) + heading.size()));
  const Output output = ShellIn(host.root, "sh -e ./examples");
  EXPECT_EQ(output.status, 0) << output.text;
  for (const char *event :
       {"amb.problem.storage.apd.start", "amb.audit.ambcli.host.reboot.reason", "amb.clear.storage.apd.exit"}) {
    EXPECT_TRUE(host.events.Records().WaitFor(event)) << event;
  }
}

TEST(Tool, TheReadmesBlockCanBePasted) {
  const TestRoot root;
  const std::string readme = ReadFile(RYND_SOURCE "/README.md"), fence = "\n```\n";
  const size_t start = readme.find(fence, readme.find("\n## Running it\n")) + fence.size();
  const std::string block = readme.substr(start, readme.find(fence, start) - start);
  WriteFile(root / "/block",
            "set -m\n" + block + "\nwait %2; echo ended with $?\nkill %1\nwait\nrm -r $CORVANE_ROOT\n");
  std::filesystem::create_directories(root / "/build/release");
  std::filesystem::create_symlink(RYND_BUILD "/bin", root / "/build/release/bin");
  const auto [status, shown] = ShellIn(root, "bash ./block");
  ASSERT_EQ(status, 0) << shown;
  for (const char *part :
       {"storage.apd.start: Device or", "the daemon ended the trace", "2 open: 1 critical, 1 error.", "ended with 0"}) {
    EXPECT_NE(shown.find(part), std::string::npos) << part << ":\n" << shown;
  }
}

}  // namespace
}  // namespace testing_support
