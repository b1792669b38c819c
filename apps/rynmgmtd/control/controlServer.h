// Answers rynctl. A thread of its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <list>
#include <string>
#include <thread>

#include "base/uniqueFd.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {

/// Serves the control socket from Start to Stop, many clients at once; who asks nothing or does not read is cut off
/// after 5 s. A wish is carried out with the name of the client's user.
class ControlServer {
 public:
  static constexpr size_t kMostClients = 32;
  static constexpr std::chrono::seconds kPatience{5};

  /// Both are borrowed.
  ControlServer(Feed *feed, Writer *writer) : feed_(feed), writer_(writer) {}
  ~ControlServer() { Stop(); }
  ControlServer(const ControlServer &) = delete;
  ControlServer &operator=(const ControlServer &) = delete;

  /// "" or why `path` can't be served.
  std::string Start(const std::string &path);
  void Stop();

 private:
  struct Client {
    base::UniqueFd fd;
    std::chrono::steady_clock::time_point since;
    std::string request{};
    std::string answer{};
    bool done = false;
  };

  void Run();
  void Accept();
  void Read(Client *client);
  static void Send(Client *client);
  std::string Answer(const std::string &request, uid_t uid);

  Feed *const feed_;
  Writer *const writer_;
  std::string path_;
  base::UniqueFd listen_, stop_;
  std::list<Client> clients_;
  std::thread thread_;
};

}  // namespace mgmtd
