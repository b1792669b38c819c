// Sends observations to the daemon's contexts, one connection for each context, kept for the run.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/uniqueFd.h"
#include "hosted/records/rawRecord.h"
#include "librynsubmit/rynsubmit.h"
#include "rynctl/daemonSocket.h"

namespace rynctl {

/// Which of the daemon's contexts an observation goes to.
struct Target {
  bool user = false;     ///< the user context
  unsigned context = 0;  ///< else the kernel context, 0 to 28
};

/// One observation and where it goes; its sequence number and time are given when it is sent.
struct Submission {
  Target target;
  hosted::RawRecord record;
};

/// "" when the daemon can take `submission`, or why not: an empty id, an id that its context does not carry, a NUL
/// inside a text, a record that is too large.
std::string CheckSubmission(const Submission &submission);

/// One thread at a time.
class ObservationSender {
 public:
  /// `patience` is borrowed for the sender's life.
  explicit ObservationSender(Patience *patience) : patience_(patience) {}

  /// Send one observation, numbered and stamped with the time of day. When the daemon was started anew since the
  /// last one, connects again. "" or an error.
  std::string Send(Submission submission);

 private:
  std::string SendToKernel(const std::string &path, const std::vector<std::byte> &bytes);
  std::string SendToUser(const hosted::RawRecord &record);

  Patience *patience_;
  uint64_t sequence_ = 0;
  std::map<std::string, base::UniqueFd> connections_;  ///< to kernel contexts, by socket path
  /// The connection to the user context, once it is made. A submission that was given up may still hold it.
  struct User {
    User() = default;
    ~User() { rynsubmit_close(connection); }
    User(const User &) = delete;
    User &operator=(const User &) = delete;
    rynsubmit *connection = nullptr;
  };
  std::shared_ptr<User> user_ = std::make_shared<User>();
};

}  // namespace rynctl
