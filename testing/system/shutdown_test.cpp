// A stop ends the daemon within two seconds, whatever everybody else does.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/daemon.h"

namespace testing_support {
namespace {

const char kReady[] = "rynd setup completed. Start polling loop.";

double Scale() {
  return IsSlowBuild() ? 4 : 1;
}

/// Sends observations that post, or that are only handled, as fast as they are taken, until it goes.
class Load {
 public:
  explicit Load(const TestRoot &root)
      : fd_(ConnectKernel(root, 3)), thread_([this] {
          // Mostly without their integer: handled and logged, but below the limit of events.
          const auto handled = MakeRecord("ryn.storage.apd.timeout", {"naa.600"});
          const auto posting = MakeRecord("ryn.storage.apd.start", {"naa.600"});
          for (int i = 0; !stop_; ++i) {
            const auto &record = i % 50 == 0 ? posting : handled;
            if (send(fd_.Get(), record.data(), record.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN)
              return;
          }
        }) {}
  ~Load() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_ = false;
  base::UniqueFd fd_;
  std::thread thread_;
};

/// Signal the daemon and expect a clean end in time.
void ExpectPromptEnd(Daemon *daemon, const TestRoot &root, const LogListener &log, int number = SIGTERM) {
  const auto start = std::chrono::steady_clock::now();
  daemon->Signal(number);
  ASSERT_EQ(daemon->WaitForExit(20), 0) << ReadFile(root / "/stderr");
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  EXPECT_LT(taken.count(), 2 * Scale());
  EXPECT_TRUE(log.Lines().WaitFor("Exiting due to signal."));
  EXPECT_TRUE(log.Lines().WaitFor("Exiting. rc:0"));
}

TEST(Shutdown, FiveHundredTimesAtRandomMomentsUnderLoad) {
  std::mt19937 random(11);
  const int rounds = IsSlowBuild() ? 60 : 500;
  for (int i = 0; i < rounds; ++i) {
    RunningDaemon running;
    const Load load(running.root);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    ExpectPromptEnd(&running.daemon, running.root, running.log, i % 2 == 0 ? SIGTERM : SIGINT);
    if (HasFatalFailure()) FAIL() << "round " << i;
  }
}

TEST(Shutdown, AtAnyMomentOfTheStart) {
  // A signal that comes before the handlers ends the process as any other would; from then on the end is clean.
  std::mt19937 random(12);
  for (int i = 0; i < (IsSlowBuild() ? 30 : 200); ++i) {
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    Daemon daemon(root);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % static_cast<unsigned>(8'000 * Scale())));
    daemon.Signal(SIGTERM);
    const int status = daemon.WaitForExit(20);
    if (status == 128 + SIGTERM) {
      EXPECT_EQ(log.Lines().CountOf(kReady), 0u);
    } else {
      ASSERT_EQ(status, 0);
      EXPECT_TRUE(log.Lines().WaitFor("Exiting. rc:0"));
    }
  }
}

/// A management agent that serves nobody: it accepts and never reads, or has a backlog that is full.
class HangingAgent {
 public:
  HangingAgent(const TestRoot &root, bool accepts) {
    const std::string path = root / "/var/run/corvane/mgmtd-kprob.sock";
    hosted::MakeFolders(root / "/var/run/corvane", 0755);
    EXPECT_EQ(hosted::ServeUnixSocket(path, SOCK_STREAM, 0660, &socket_), 0);
    listen(socket_.Get(), 0);
    if (accepts) {
      thread_ = std::thread([this] {
        for (int fd; (fd = accept(socket_.Get(), nullptr, nullptr)) >= 0;) accepted_.emplace_back(fd);
      });
    } else {
      EXPECT_EQ(hosted::ConnectUnixSocket(path, SOCK_STREAM, &filler_), 0);
    }
  }
  ~HangingAgent() {
    shutdown(socket_.Get(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
  }

 private:
  base::UniqueFd socket_;
  base::UniqueFd filler_;
  std::vector<base::UniqueFd> accepted_;
  std::thread thread_;
};

TEST(Shutdown, WithAnAgentThatHangs) {
  for (const bool accepts : {true, false}) {
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    const HangingAgent agent(root, accepts);
    Daemon daemon(root);
    ASSERT_TRUE(log.Lines().WaitFor(kReady));
    {
      const Load load(root);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));  // long enough to fill every pipe
      ExpectPromptEnd(&daemon, root, log);
    }
  }
}

/// Send `record` until the queue of `fd` is full.
void Fill(const base::UniqueFd &fd, const std::vector<std::byte> &record) {
  for (int i = 0; i < 100 && send(fd.Get(), record.data(), record.size(), MSG_DONTWAIT) >= 0; ++i) {
  }
}

/// A daemon whose poll loop waits for agents that hang in a delivery, with records waiting on this many contexts.
class LaggingAgents : public testing::TestWithParam<unsigned> {
 protected:
  LaggingAgents() {
    EXPECT_TRUE(log_.Lines().WaitFor(kReady));
    for (unsigned id = 0; id < GetParam(); ++id) kernel_.push_back(ConnectKernel(root_, id));
    const auto small = MakeRecord("ryn.storage.apd.start", {"naa.1"});
    EXPECT_TRUE(SendRecord(kernel_[0], small));
    const std::vector<std::byte> large[] = {
        MakeRecord("ryn.storage.apd.start", {std::string(100'000, 'x')}),
        MakeRecord("ryn.storage.apd.exit", {std::string(100'000, 'x')}),
    };
    // Once no context has room any more, every pipe in front of a hanging agent is full too.
    EXPECT_TRUE(WaitUntil([&] {
      for (size_t i = 0; i < kernel_.size(); ++i) Fill(kernel_[i], large[i % 2]);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return std::all_of(kernel_.begin(), kernel_.end(), [&](const base::UniqueFd &fd) {
        return send(fd.Get(), small.data(), small.size(), MSG_DONTWAIT) < 0;
      });
    }));
  }
  const TestRoot root_;
  const LogListener log_{root_ / "/dev/log"};
  const HangingAgent agent_{root_, false};
  Daemon daemon_{root_};
  std::vector<base::UniqueFd> kernel_;
};
INSTANTIATE_TEST_SUITE_P(Contexts, LaggingAgents, testing::Values(1, 2, 8, 29));

TEST_P(LaggingAgents, DoNotHoldUpAStop) {
  ExpectPromptEnd(&daemon_, root_, log_);
}

TEST(Shutdown, WhileEveryContextAndConnectionIsFlooded) {
  const TestRoot root;
  const LogListener log(root / "/dev/log");
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor(kReady));
  std::vector<base::UniqueFd> senders;
  for (unsigned id = 0; id < 29; ++id) senders.push_back(ConnectKernel(root, id));
  for (int i = 0; i < 8; ++i) senders.push_back(ConnectUser(root));
  const auto record = MakeRecord("ryn.user.nobody.listens", {"x"});
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (size_t first = 0; first < 4; ++first) {
    threads.emplace_back([&, first] {
      while (!stop) {
        for (size_t i = first; i < senders.size(); i += 4) {
          send(senders[i].Get(), record.data(), record.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ExpectPromptEnd(&daemon, root, log);
  stop = true;
  for (std::thread &thread : threads) thread.join();
}

TEST(Shutdown, WithTraceClientsThatStallOrVanish) {
  RunningDaemon running;
  std::vector<base::UniqueFd> clients;
  for (int i = 0; i < 300; ++i) clients.push_back(ConnectTrace(running.root));
  {
    const Load load(running.root);
    ASSERT_TRUE(running.log.Lines().WaitFor("amb.problem.storage.apd.start", 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    clients.resize(150);  // half of them vanish, in the middle of lines
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root, 5), MakeRecord("ryn.storage.apd.timeout", {"still served"})));
  EXPECT_TRUE(running.log.Lines().WaitFor("[ryn.storage.apd.timeout]"));
  ExpectPromptEnd(&running.daemon, running.root, running.log);
}

TEST(Shutdown, WithASystemLogThatHangs) {
  const TestRoot root;
  std::filesystem::create_directories(root / "/dev");
  base::UniqueFd hanging;
  ASSERT_EQ(hosted::ServeUnixSocket(root / "/dev/log", SOCK_DGRAM, 0660, &hanging), 0);
  Daemon daemon(root);
  ASSERT_TRUE(WaitUntil([&] { return std::filesystem::exists(root / "/var/run/corvane/rynd-trace.sock"); }));
  const auto kernel = ConnectKernel(root);
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(SendRecord(kernel, MakeRecord("ryn.storage.apd.timeout", {"naa.1"})));
  const auto start = std::chrono::steady_clock::now();
  daemon.Signal(SIGTERM);
  EXPECT_EQ(daemon.WaitForExit(20), 0);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 2 * Scale());
}

}  // namespace
}  // namespace testing_support
