// The daemon's end is made by the tests, which decode what arrives.
#include "librynsubmit/rynsubmit.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "testing/records.h"
#include "testing/testRoot.h"

namespace {

class RynSubmit : public testing::Test {
 protected:
  void SetUp() override { Serve(); }
  void TearDown() override {
    rynsubmit_close(connection_);
    unlink(path_.c_str());
  }

  void Serve(int backlog = 16) {
    ASSERT_EQ(hosted::MakeFolders(path_.substr(0, path_.rfind('/')), 0700), 0);
    ASSERT_EQ(hosted::ServeUnixSocket(path_, SOCK_SEQPACKET, 0660, &context_), 0);
    ASSERT_EQ(listen(context_.Get(), backlog), 0);
  }
  void Accept() { caller_.Reset(accept(context_.Get(), nullptr, nullptr)); }
  /// Whether there is something to read from `fd`, or somebody to accept, within 5 s.
  static bool Waits(const base::UniqueFd &fd) {
    pollfd readable{fd.Get(), POLLIN, 0};
    return poll(&readable, 1, 5000) == 1;
  }

  /// The next record of the accepted caller; one with an empty id when there is none.
  hosted::RawRecord Receive() { return testing_support::ReceiveRecord(caller_.Get()); }
  int Submit(const char *id, const std::vector<rynsubmit_argument> &arguments = {}, const char *message = nullptr) {
    return rynsubmit_submit(connection_, id, message, arguments.data(), arguments.size());
  }

  const std::string path_ = hosted::RootPath(hosted::kUserSocket);
  base::UniqueFd context_, caller_;
  rynsubmit *connection_ = nullptr;
};

TEST_F(RynSubmit, SendsWhatItIsGiven) {
  ASSERT_EQ(rynsubmit_connect(0, &connection_), 0);
  Accept();
  const rynsubmit_argument narrow = rynsubmit_signed(1, -128);
  ASSERT_EQ(Submit("ryn.user.a",
                   {rynsubmit_i32(-5), rynsubmit_i64(INT64_MIN), rynsubmit_u32(UINT32_MAX), rynsubmit_u64(UINT64_MAX),
                    rynsubmit_string("text"), rynsubmit_string(""), rynsubmit_string(nullptr), narrow},
                   "what happened"),
            0);
  const hosted::RawRecord record = Receive();
  EXPECT_EQ(record.id, "ryn.user.a");
  EXPECT_EQ(record.message, "what happened");
  EXPECT_EQ(record.sequence, 1u);
  EXPECT_NEAR(static_cast<double>(record.microseconds), static_cast<double>(time(nullptr)) * 1e6, 60e6);
  EXPECT_EQ(testing_support::Shown(record),
            (std::vector<std::string>{"i4:-5", "i8:-9223372036854775808", "u4:4294967295", "u8:18446744073709551615",
                                      "s:text", "s:", "null", "i1:-128"}));
}

TEST_F(RynSubmit, RefusesWhatTheDaemonWouldDiscard) {
  ASSERT_EQ(rynsubmit_connect(0, &connection_), 0);
  Accept();
  EXPECT_EQ(Submit("ryn.user."), 0);
  EXPECT_EQ(Receive().id, "ryn.user.");
  for (const char *id : {"", "ryn.user", "ryn.users", "ryn.storage.apd.start"}) EXPECT_EQ(Submit(id), EINVAL) << id;
  EXPECT_EQ(Submit(nullptr), EINVAL);
  EXPECT_EQ(rynsubmit_submit(nullptr, "ryn.user.a", "", nullptr, 0), EINVAL);
  EXPECT_EQ(rynsubmit_submit(connection_, "ryn.user.a", "", nullptr, 1), EINVAL);
  const auto with = [](int kind, unsigned width, int64_t value) {
    rynsubmit_argument argument{};
    argument.kind = static_cast<rynsubmit_kind>(kind);
    argument.width = width;
    argument.value.i = value;
    return argument;
  };
  for (const rynsubmit_argument &bad :
       {with(RYNSUBMIT_SIGNED, 1, 128), with(RYNSUBMIT_SIGNED, 2, -32769), with(RYNSUBMIT_SIGNED, 3, 0),
        with(RYNSUBMIT_SIGNED, 0, 0), with(RYNSUBMIT_UNSIGNED, 4, int64_t{1} << 32), with(RYNSUBMIT_UNSIGNED, 16, 0),
        with(RYNSUBMIT_STRING, 0, 0), with(RYNSUBMIT_NULL_STRING, 1, 0)}) {
    EXPECT_EQ(Submit("ryn.user.a", {rynsubmit_i32(0), bad}), EINVAL) << bad.kind << " " << bad.width;
  }
  // 32 bytes of header, 11 and 1 of texts with their NUL, 8 before the string and 1 behind it.
  std::string longest(RYNSUBMIT_MAX_RECORD - 32 - 11 - 1 - 8 - 1, 'x');
  EXPECT_EQ(Submit("ryn.user.a", {rynsubmit_string(longest.c_str())}), 0);
  EXPECT_EQ(Receive().arguments.at(0).text, longest);
  longest += 'x';
  EXPECT_EQ(Submit("ryn.user.a", {rynsubmit_string(longest.c_str())}), EMSGSIZE);
  EXPECT_EQ(Receive().id, "");
}

TEST_F(RynSubmit, SaysWhyItCannotConnect) {
  context_.Reset();  // its file stays, as after a crash
  EXPECT_EQ(rynsubmit_connect(0, &connection_), ECONNREFUSED);
  EXPECT_EQ(connection_, nullptr);
  unlink(path_.c_str());
  EXPECT_EQ(rynsubmit_connect(30, &connection_), ENOENT);
  const std::string root = getenv("CORVANE_ROOT");
  setenv("CORVANE_ROOT", std::string(200, 'x').c_str(), 1);
  EXPECT_EQ(rynsubmit_connect(0, &connection_), ENAMETOOLONG);
  // Slashes behind the root are no part of it, as for the daemon.
  setenv("CORVANE_ROOT", (root + std::string(200, '/')).c_str(), 1);
  EXPECT_EQ(rynsubmit_connect(0, &connection_), ENOENT);
  setenv("CORVANE_ROOT", root.c_str(), 1);
  EXPECT_EQ(rynsubmit_connect(0, nullptr), EINVAL);
  rynsubmit_close(nullptr);
}

TEST_F(RynSubmit, WaitsNoLongerThanItIsTold) {
  // The kernel takes what nobody reads, up to its limit.
  ASSERT_EQ(rynsubmit_connect(0, &connection_), 0);
  int taken = 0, status = 0;
  while (taken < 100'000 && (status = Submit("ryn.user.a")) == 0) ++taken;
  EXPECT_EQ(status, ETIMEDOUT);
  Accept();
  for (int i = 0; i < taken; ++i) ASSERT_EQ(Receive().id, "ryn.user.a");
  EXPECT_EQ(Receive().id, "");
  EXPECT_EQ(Submit("ryn.user.a"), 0);
  rynsubmit_close(std::exchange(connection_, nullptr));
  // Each of several threads waits for its own time, not for that of those before it.
  constexpr int kTimeoutMs = 400;
  ASSERT_EQ(rynsubmit_connect(kTimeoutMs, &connection_), 0);
  const auto start = std::chrono::steady_clock::now();
  std::thread threads[3];
  for (std::thread &thread : threads) thread = std::thread([&] { EXPECT_EQ(Submit("ryn.user.a"), ETIMEDOUT); });
  for (std::thread &thread : threads) thread.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2 * kTimeoutMs));
  // A full backlog.
  context_.Reset();
  Serve(0);
  rynsubmit *callers[4] = {};
  for (rynsubmit *&caller : callers) status = rynsubmit_connect(20, &caller);
  EXPECT_EQ(status, ETIMEDOUT);
  for (rynsubmit *caller : callers) rynsubmit_close(caller);
}

/// A daemon that is not there yet, or goes, is waited for; and 0 is said of nothing that it has not read.
TEST_F(RynSubmit, LosesNothingToADaemonThatStartsAnew) {
  context_.Reset();
  unlink(path_.c_str());
  constexpr int kThreads = 4, kEach = 150;
  std::atomic<int> left = kThreads;
  rynsubmit *shared = nullptr;
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Serve();
  });
  EXPECT_EQ(rynsubmit_connect(60'000, &shared), 0);
  late.join();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      rynsubmit *own = nullptr;
      EXPECT_EQ(t > 0 || rynsubmit_connect(60'000, &own) == 0, true);  // the others share one
      rynsubmit *const mine = t == 0 ? own : shared;
      for (int i = 0; i < kEach; ++i) {
        const rynsubmit_argument arguments[] = {rynsubmit_i32(t), rynsubmit_i32(i)};
        EXPECT_EQ(rynsubmit_submit(mine, "ryn.user.a", nullptr, arguments, 2), 0);
      }
      rynsubmit_close(own);
      --left;
    });
  }
  std::set<std::pair<uint64_t, uint64_t>> seen;
  // Each daemon reads a while from whoever calls, and is gone with what is unread, also in those it never accepted.
  for (int run = 0; left > 0; ++run) {
    std::this_thread::sleep_for(std::chrono::milliseconds(run % 3));
    if (run > 0) Serve();
    std::vector<base::UniqueFd> callers;
    for (int served = 0; served < 3 + run % 40 && left > 0; ++served) {
      std::vector<pollfd> set = {{context_.Get(), POLLIN, 0}};
      for (const base::UniqueFd &caller : callers) set.push_back({caller.Get(), POLLIN, 0});
      if (poll(set.data(), set.size(), 100) <= 0) continue;
      for (size_t i = 1; i < set.size(); ++i) {
        if ((set[i].revents & POLLIN) == 0) continue;
        const hosted::RawRecord record = testing_support::ReceiveRecord(callers[i - 1].Get());
        if (record.arguments.size() == 2) seen.emplace(record.arguments[0].bits, record.arguments[1].bits);
      }
      if (set[0].revents != 0) callers.emplace_back(accept(context_.Get(), nullptr, nullptr));
    }
    context_.Reset();
    if (run % 2 == 0) unlink(path_.c_str());  // else its file stays, as after a crash
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(seen.size(), size_t{kThreads} * kEach);
  rynsubmit_close(shared);
  Serve();
}

/// What has the connection's number after the program has closed its descriptors is the program's.
TEST_F(RynSubmit, LeavesAloneWhatIsNotItsOwn) {
  const auto highest = [] { return base::UniqueFd(dup(0)).Get(); };
  const int number = highest();
  ASSERT_EQ(rynsubmit_connect(5000, &connection_), 0);
  const std::string file = hosted::RootPath("/file");
  const int mine = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(dup3(mine, number, O_CLOEXEC), number);
  std::thread daemon([&] {
    base::UniqueFd closed(accept(context_.Get(), nullptr, nullptr));
    Accept();
    EXPECT_TRUE(Waits(caller_));
    EXPECT_EQ(Receive().id, "ryn.user.a");
  });
  EXPECT_EQ(Submit("ryn.user.a"), 0);
  daemon.join();
  close(mine);
  EXPECT_EQ(testing_support::ReadFile(file), "");
  rynsubmit_close(std::exchange(connection_, nullptr));
  EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC) << "the file is still open";
  close(number);
}

TEST_F(RynSubmit, ServesAProcessThatWasForkedMeanwhile) {
  ASSERT_EQ(rynsubmit_connect(20'000, &connection_), 0);
  std::thread first([&] { EXPECT_EQ(Submit("ryn.user.a"), 0); });
  Accept();
  ASSERT_TRUE(Waits(caller_));  // the thread waits until it is read
  const pid_t child = fork();
  if (child == 0) _exit(Submit("ryn.user.b"));
  base::UniqueFd parent = std::move(caller_);
  ASSERT_TRUE(Waits(context_)) << "the child has a connection of its own";
  Accept();
  ASSERT_TRUE(Waits(caller_));
  EXPECT_EQ(Receive().id, "ryn.user.b");
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  caller_ = std::move(parent);
  EXPECT_EQ(Receive().id, "ryn.user.a");
  first.join();
}

/// A daemon that serves as many connections as it can accepts a further one and closes it, with what is in it.
TEST_F(RynSubmit, WaitsUntilTheDaemonServesIt) {
  ASSERT_EQ(rynsubmit_connect(30'000, &connection_), 0);
  std::thread submitter([&] { EXPECT_EQ(Submit("ryn.user.a"), 0); });
  for (int i = 0; i < 4; ++i) {
    caller_.Reset();
    if (!Waits(context_)) break;
    Accept();
    Waits(caller_);
  }
  EXPECT_EQ(Receive().id, "ryn.user.a");
  submitter.join();
  // It never does, and says so in time.
  rynsubmit_close(std::exchange(connection_, nullptr));
  ASSERT_EQ(rynsubmit_connect(50, &connection_), 0);
  std::thread busy([&] {
    pollfd call{context_.Get(), POLLIN, 0};
    while (poll(&call, 1, 500) == 1) {
      Accept();
      caller_.Reset();
    }
  });
  EXPECT_EQ(Submit("ryn.user.b"), ETIMEDOUT);
  busy.join();
}

}  // namespace
