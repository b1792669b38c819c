// Checks, numbers, stamps and sends observations.
#include "observationSender.h"

#include <sys/socket.h>

#include <chrono>
#include <string_view>

#include "hosted/paths.h"

namespace rynctl {
namespace {

constexpr std::string_view kUserIdPrefix = "ryn.user.";
/// Room for two of the largest records: the kernel counts its own overhead too.
constexpr int kSendBuffer = 2 * 128 * 1024;

bool HoldsNul(const std::string &text) {
  return text.find('\0') != std::string::npos;
}

uint64_t MicrosecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
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
  submission.record.sequence = ++sequence_;
  submission.record.microseconds = MicrosecondsNow();
  const std::string path =
      target.user ? hosted::RootPath(hosted::kUserSocket) : hosted::KernelSocketPath(target.context);
  return SendBytes(path, target.user, hosted::EncodeRecord(submission.record));
}

std::string ObservationSender::SendBytes(const std::string &path, bool user, const std::vector<std::byte> &bytes) {
  base::UniqueFd &fd = connections_[path];
  bool reused = static_cast<bool>(fd);
  while (true) {
    if (!fd) {
      std::string error = ConnectToDaemon(path, user ? SOCK_SEQPACKET : SOCK_DGRAM, patience_, &fd);
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

}  // namespace rynctl
