// What the tests of the hosted platform share.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/uniqueFd.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/log/log.h"
#include "hosted/paths.h"
#include "hosted/records/rawRecord.h"
#include "platform/ryn.h"
#include "platform/system.h"
#include "testing/testRoot.h"

namespace hosted {

using testing_support::PutHost;
using testing_support::TakeActions;

/// Listens at the system log's socket as long as it lives.
class LogListener {
 public:
  LogListener() : path_(RootPath(kLogSocket)) {
    EXPECT_EQ(MakeFolders(RootPath("/dev"), 0755), 0);
    EXPECT_EQ(ServeUnixSocket(path_, SOCK_DGRAM, 0666, &fd_), 0);
  }
  ~LogListener() {
    for (int left = 1000; left > 0 && !Next().empty(); --left) {  // threads may go on logging
    }
    Log("the next test is not told of records that this one dropped");
    unlink(path_.c_str());
  }

  /// The next record, whole; "" when none comes.
  std::string Next(int milliseconds = 0) {
    pollfd ready{fd_.Get(), POLLIN, 0};
    if (poll(&ready, 1, milliseconds) != 1) return "";
    const ssize_t got = recv(fd_.Get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    return got < 0 ? "" : std::string(buffer_.data(), static_cast<size_t>(got));
  }
  /// The next record's message: what stands behind the structured data.
  std::string NextMessage() {
    const std::string record = Next();
    const size_t end = record.find("\"] ");
    return end == std::string::npos ? record : record.substr(end + 3);
  }
  std::vector<std::string> AllMessages() {
    std::vector<std::string> all;
    for (std::string one = NextMessage(); !one.empty(); one = NextMessage()) all.push_back(one);
    return all;
  }

 private:
  std::string path_;
  base::UniqueFd fd_;
  std::vector<char> buffer_ = std::vector<char>(300'000);
};

/// Every test starts with an empty host tree.
class HostTreeTest : public testing::Test {
 protected:
  HostTreeTest() { testing_support::ClearHost(); }
  LogListener log_;  // keeps the failures off the terminal
};

/// Puts `fd` in place of standard error as long as it lives.
class StandardErrorAs {
 public:
  explicit StandardErrorAs(int fd) : saved_(dup(STDERR_FILENO)) { dup2(fd, STDERR_FILENO); }
  ~StandardErrorAs() { dup2(saved_.Get(), STDERR_FILENO); }

 private:
  base::UniqueFd saved_;
};

/// What `action` writes to standard error.
template <typename Action>
std::string StandardErrorOf(const Action &action) {
  std::FILE *file = std::tmpfile();
  {
    const StandardErrorAs redirected(fileno(file));
    action();
  }
  std::string text(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(fileno(file), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  std::fclose(file);
  return text;
}

inline RawArgument Signed(uint8_t width, int64_t value) {
  return {ArgumentKind::kSigned, width, static_cast<uint64_t>(value), ""};
}
inline RawArgument Unsigned(uint8_t width, uint64_t value) {
  return {ArgumentKind::kUnsigned, width, value, ""};
}
inline RawArgument Text(std::string text) {
  return {ArgumentKind::kString, 0, 0, std::move(text)};
}
inline RawArgument NullText() {
  return {ArgumentKind::kNullString, 0, 0, ""};
}

/// An encoded record with this id.
inline std::vector<std::byte> RecordOf(const std::string &id, std::vector<RawArgument> arguments = {},
                                       const std::string &message = "message") {
  return EncodeRecord({1, 2, id, message, std::move(arguments)});
}

struct FreeObservation {
  void operator()(Observation *observation) const { Ryn_Free(observation); }
};
using ObservationPtr = std::unique_ptr<Observation, FreeObservation>;

/// `record` as an observation.
inline ObservationPtr MakeObservation(const std::vector<std::byte> &record) {
  auto *bytes = new std::byte[record.size()];
  std::copy(record.begin(), record.end(), bytes);
  Observation *observation = nullptr;
  EXPECT_EQ(Ryn_MakeRyn(bytes, record.size(), &observation), 0);
  return ObservationPtr(observation);
}

/// Send `record` as one packet.
inline void SendTo(int fd, const std::vector<std::byte> &record) {
  ASSERT_EQ(send(fd, record.data(), record.size(), MSG_NOSIGNAL), static_cast<ssize_t>(record.size()))
      << std::strerror(errno);
}

}  // namespace hosted
