#include "rynctl/health/statistics.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "hosted/paths.h"

namespace rynctl {
namespace {

constexpr int kAnswerMs = 5000;
constexpr std::string_view kRequest = "stats\n";

/// Read up to the end of the connection. "" or what went wrong.
std::string ReadAnswer(int fd, std::string *text) {
  for (;;) {
    pollfd set{fd, POLLIN, 0};
    const int ready = poll(&set, 1, kAnswerMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) return "the daemon does not answer: its trace feed hangs, or it has no memory";
    char part[16 * 1024];
    const ssize_t count = recv(fd, part, sizeof part, 0);
    if (count == 0) return "";
    if (count > 0) {
      text->append(part, static_cast<size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return std::string("cannot read the daemon's answer: ") + std::strerror(errno);
    }
  }
}

}  // namespace

std::string FetchStatistics(Patience *patience, nlohmann::json *statistics) {
  base::UniqueFd fd;
  const std::string path = hosted::RootPath(hosted::kTraceSocket);
  if (std::string error = ConnectToDaemon(path, SOCK_STREAM, patience, &fd); !error.empty()) return error;
  if (send(fd.Get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(kRequest.size())) {
    return "cannot ask the daemon at " + path + ": " + std::strerror(errno);
  }
  std::string text;
  if (std::string error = ReadAnswer(fd.Get(), &text); !error.empty()) return error;
  // Lines of the feed that came before the daemon had read the request stand in front of the answer.
  const size_t end = text.find_last_not_of('\n');
  const size_t start = end == std::string::npos ? std::string::npos : text.rfind('\n', end) + 1;
  *statistics =
      start == std::string::npos ? nlohmann::json() : nlohmann::json::parse(text.substr(start), nullptr, false);
  if (statistics->is_object() && statistics->contains("agents")) return "";
  return "the daemon at " + path + " does not know statistics: it is older than this tool";
}

std::string DurationText(uint64_t microseconds) {
  const auto two = [](uint64_t large, const char *unit, uint64_t small, const char *rest) {
    return std::to_string(large) + unit + (small == 0 ? "" : " " + std::to_string(small) + rest);
  };
  const uint64_t seconds = microseconds / 1'000'000;
  if (microseconds < 1000) return std::to_string(microseconds) + " us";
  if (seconds < 1) return std::to_string(microseconds / 1000) + " ms";
  if (seconds < 10) return std::to_string(seconds) + "." + std::to_string(microseconds / 100'000 % 10) + " s";
  if (seconds < 600) return std::to_string(seconds) + " s";
  if (seconds < 3600) return std::to_string(seconds / 60) + " min";
  if (seconds < 86'400) return two(seconds / 3600, " h", seconds / 60 % 60, " min");
  return two(seconds / 86'400, " d", seconds / 3600 % 24, " h");
}

}  // namespace rynctl
