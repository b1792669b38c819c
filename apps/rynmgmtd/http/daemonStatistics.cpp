// The daemon's statistics. One thread.
#include "mgmtd/http/daemonStatistics.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "base/uniqueFd.h"
#include "base/unixAddress.h"

namespace mgmtd {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kRequest = "stats\n";
constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kCached = std::chrono::seconds(5);
constexpr size_t kMostAnswerBytes = size_t{4} << 20;

/// All that comes until the daemon closes the connection; false when it takes too long or too much.
bool ReadAll(int fd, Clock::time_point deadline, std::string *text) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || text->size() > kMostAnswerBytes) return false;
    pollfd readable{fd, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(left)) < 0 && errno != EINTR) return false;
    std::array<char, 16 * 1024> part;
    const ssize_t count = recv(fd, part.data(), part.size(), MSG_DONTWAIT);
    if (count == 0) return true;
    if (count > 0) {
      text->append(part.data(), static_cast<size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return false;
    }
  }
}

}  // namespace

const nlohmann::json &DaemonStatistics::Get() {
  const Clock::time_point now = Clock::now();
  if (asked_ == Clock::time_point{} || now - asked_ >= kCached) {
    last_ = Fetch();
    asked_ = Clock::now();
  }
  return last_;
}

nlohmann::json DaemonStatistics::Fetch() const {
  base::UnixAddress address;
  if (base::MakeUnixAddress(path_, &address) != 0) return nullptr;
  const base::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // A full backlog is not waited for.
  if (!fd || connect(fd.Get(), address.Get(), base::UnixAddress::kLength) != 0) return nullptr;
  if (send(fd.Get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(kRequest.size())) {
    return nullptr;
  }
  std::string text;
  if (!ReadAll(fd.Get(), Clock::now() + kPatience, &text)) return nullptr;
  // Lines of the feed that came before the daemon had read the request stand in front of the answer.
  const size_t end = text.find_last_not_of('\n');
  if (end == std::string::npos) return nullptr;
  const size_t start = text.rfind('\n', end) + 1;
  nlohmann::json statistics = nlohmann::json::parse(text.substr(start), nullptr, false);
  if (!statistics.is_object() || !statistics.contains("agents")) return nullptr;
  return statistics;
}

}  // namespace mgmtd
