// A poll loop; only "ack" waits, for as long as a commit takes.
#include "mgmtd/control/controlServer.h"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <vector>

#include "hosted/contexts/unixSocket.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

constexpr size_t kMostRequest = 4096;

std::string UserName(uid_t uid) {
  passwd entry{};
  passwd *found = nullptr;
  char buffer[4096];
  if (getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) return found->pw_name;
  return "user " + std::to_string(uid);
}

std::string Line(const ordered_json &value) {
  return Dump(value) + "\n";
}

std::string Error(const std::string &text) {
  return Line({{"error", text}});
}

ordered_json Status(const StoreHealth &health, const Feed &feed) {
  return {{"version", RYND_VERSION},
          {"works", health.works},
          {"problem", health.problem},
          {"since_us", health.sinceUs},
          {"received", health.received},
          {"stored", health.stored},
          {"doubles", health.doubles},
          {"damaged", health.damaged},
          {"waiting", health.waiting},
          {"dropped", health.queueFull + health.memoryFull},
          {"expired", health.expired},
          {"forgotten", health.forgotten},
          {"file_bytes", health.fileBytes},
          {"last_event_id", feed.Newest().event},
          {"last_event_us", feed.Counts().lastEventUs}};
}

}  // namespace

std::string ControlServer::Start(const std::string &path) {
  const int error = hosted::ServeUnixSocket(path, SOCK_STREAM, 0660, &listen_);
  if (error != 0) return "cannot serve " + path + ": " + std::strerror(error);
  path_ = path;
  fcntl(listen_.Get(), F_SETFL, O_NONBLOCK);
  stop_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!stop_) return std::string("cannot make an eventfd: ") + std::strerror(errno);
  thread_ = std::thread([this] { Run(); });
  return "";
}

void ControlServer::Stop() {
  if (!thread_.joinable()) return;
  unlink(path_.c_str());
  eventfd_write(stop_.Get(), 1);
  thread_.join();
  clients_.clear();
  listen_.Reset();
}

void ControlServer::Run() {
  while (true) {
    std::vector<pollfd> fds = {{stop_.Get(), POLLIN, 0}};
    fds.push_back({clients_.size() < kMostClients ? listen_.Get() : -1, POLLIN, 0});
    for (const Client &client : clients_) {
      fds.push_back({client.fd.Get(), static_cast<short>(client.answer.empty() ? POLLIN : POLLOUT), 0});
    }
    poll(fds.data(), fds.size(), clients_.empty() ? -1 : 250);
    if (fds[0].revents != 0) return;
    size_t slot = 2;
    for (Client &client : clients_) {
      if (fds[slot++].revents != 0) client.answer.empty() ? Read(&client) : Send(&client);
      client.done = client.done || Clock::now() - client.since > kPatience;
    }
    clients_.remove_if([](const Client &client) { return client.done; });
    if (fds[1].revents != 0) Accept();
  }
}

void ControlServer::Accept() {
  base::UniqueFd fd(accept4(listen_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (fd) {
    clients_.push_back({std::move(fd), Clock::now()});
  } else if (errno == EMFILE || errno == ENFILE) {
    usleep(50'000);  // until somebody closes one
  }
}

void ControlServer::Read(Client *client) {
  char part[1024];
  const ssize_t count = recv(client->fd.Get(), part, sizeof part, 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count > 0) client->request.append(part, static_cast<size_t>(count));
  const size_t end = client->request.find('\n');
  client->done = count <= 0 || (end == std::string::npos && client->request.size() > kMostRequest);
  if (client->done || end == std::string::npos) return;
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(client->fd.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    client->done = true;
    return;
  }
  client->answer = Answer(client->request.substr(0, end), peer.uid);
  Send(client);
}

void ControlServer::Send(Client *client) {
  const ssize_t count = send(client->fd.Get(), client->answer.data(), client->answer.size(), MSG_NOSIGNAL);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  client->answer.erase(0, count < 0 ? std::string::npos : static_cast<size_t>(count));
  client->since = Clock::now();
  client->done = client->answer.empty();
}

/// What `request` is answered, for a user; "" never.
std::string ControlServer::Answer(const std::string &request, uid_t uid) {
  const ordered_json wish = ordered_json::parse(request, nullptr, false);
  if (!wish.is_object()) return Error("a request is one JSON object on a line");
  try {
    const std::string what = wish.at("do");
    if (what == "status") return Line(Status(writer_->Health(), *feed_));
    if (what == "problems") {
      ordered_json list = ordered_json::array();
      for (const Problem &problem : feed_->OpenProblems()) list.push_back(ToJson(problem));
      return Line({{"problems", std::move(list)}});
    }
    if (what == "ack") {
      const std::optional<size_t> ended = writer_->Acknowledge(wish.at("id"), wish.value("subject", ""), UserName(uid));
      if (!ended) return Error("the store does not answer");
      return Line({{"ended", *ended}});
    }
    return Error("nothing is called " + what);
  } catch (const ordered_json::exception &error) {
    return Error(std::string("not understood: ") + error.what());
  }
}

}  // namespace mgmtd
