// Checks, numbers, stamps and sends observations.
#include "rynctl/sending/observationSender.h"

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <string_view>

#include "base/wallClock.h"
#include "hosted/paths.h"

namespace rynctl {
namespace {

constexpr std::string_view kUserIdPrefix = "ryn.user.";
/// Room for two of the largest records: the kernel counts its own overhead too.
constexpr int kSendBuffer = 2 * 128 * 1024;

bool HoldsNul(const std::string &text) {
  return text.find('\0') != std::string::npos;
}

rynsubmit_argument ToSubmit(const hosted::RawArgument &argument) {
  if (argument.kind == hosted::ArgumentKind::kString) return rynsubmit_string(argument.text.c_str());
  if (argument.kind == hosted::ArgumentKind::kNullString) return rynsubmit_string(nullptr);
  if (argument.kind == hosted::ArgumentKind::kUnsigned) return rynsubmit_unsigned(argument.width, argument.bits);
  return rynsubmit_signed(argument.width, static_cast<int64_t>(argument.bits));
}

}  // namespace

std::string CheckSubmission(const Submission &submission) {
  const hosted::RawRecord &record = submission.record;
  if (record.id.empty()) return "the id is empty: give one such as ryn.storage.apd.start";
  if (HoldsNul(record.id)) return "the id holds a NUL character";
  if (HoldsNul(record.message)) return "the message holds a NUL character";
  for (size_t i = 0; i < record.arguments.size(); ++i) {
    if (HoldsNul(record.arguments[i].text)) return "argument " + std::to_string(i + 1) + " holds a NUL character";
  }
  if (submission.target.user && !record.id.starts_with(kUserIdPrefix)) {
    return "the user context carries only ids that begin with \"ryn.user.\": " + record.id +
           " (the daemon would discard it; send it to a kernel context)";
  }
  const size_t size = hosted::EncodeRecord(record).size();
  if (size > hosted::kMaxRecordSize) {
    return "the record is too large: " + std::to_string(size) + " bytes of at most " +
           std::to_string(hosted::kMaxRecordSize) + " (shorten its texts)";
  }
  return "";
}

std::string ObservationSender::Send(Submission submission) {
  if (std::string error = CheckSubmission(submission); !error.empty()) return error;
  const Target &target = submission.target;
  if (target.user) return SendToUser(submission.record);
  submission.record.sequence = ++sequence_;
  submission.record.microseconds = static_cast<uint64_t>(base::WallClockUs());
  return SendToKernel(hosted::KernelSocketPath(target.context), hosted::EncodeRecord(submission.record));
}

std::string ObservationSender::SendToKernel(const std::string &path, const std::vector<std::byte> &bytes) {
  base::UniqueFd &fd = connections_[path];
  bool reused = static_cast<bool>(fd);
  while (true) {
    if (!fd) {
      std::string error = ConnectToDaemon(path, SOCK_DGRAM, patience_, &fd);
      if (!error.empty()) return error;
      // Best effort: where the host allows less, sending says so.
      setsockopt(fd.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    }
    bool lost = false;
    std::string error = SendToDaemon(fd.Get(), path, bytes, patience_, &lost);
    if (error.empty() || !lost || !reused) return error;
    fd.Reset();
    reused = false;
  }
}

std::string ObservationSender::SendToUser(const hosted::RawRecord &record) {
  const std::string path = hosted::RootPath(hosted::kUserSocket);
  const int limit = patience_->limit ? static_cast<int>(patience_->limit->count()) : -1;
  // Its own copies: a wait that is given up goes on until the program ends.
  return SubmitWithPatience(path, patience_, [limit, record, user = user_] {
    if (user->connection == nullptr) {
      // Where no daemon is, nothing is waited for; where one was, its restart is.
      constexpr int kLookMs = 100;
      rynsubmit *looked = nullptr;
      if (const int error = rynsubmit_connect(kLookMs, &looked); error != 0) return error;
      rynsubmit_close(looked);
      if (const int error = rynsubmit_connect(limit, &user->connection); error != 0) return error;
    }
    std::vector<rynsubmit_argument> arguments;
    for (const hosted::RawArgument &argument : record.arguments) arguments.push_back(ToSubmit(argument));
    return rynsubmit_submit(user->connection, record.id.c_str(), record.message.c_str(), arguments.data(),
                            arguments.size());
  });
}

}  // namespace rynctl
