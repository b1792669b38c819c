// The socket file that the daemon sends its events to, as its one server holds it.
#pragma once

#include <sys/stat.h>

#include <string>

#include "base/uniqueFd.h"

namespace eventrecord {

/// Holds the listening socket and removes its file at the end, unless another agent has put its own there. One thread.
class EventSocket {
 public:
  explicit EventSocket(std::string path) : path_(std::move(path)) {}
  ~EventSocket() { Remove(); }
  EventSocket(const EventSocket &) = delete;
  EventSocket &operator=(const EventSocket &) = delete;

  /// Serve the path, mode 0660, its folders made where they are missing; the socket does not block. 0 or an errno
  /// value: EADDRINUSE when a live agent serves it.
  int Open();
  /// Take the file away, so that nobody finds it any more.
  void Remove();
  int Fd() const { return fd_.Get(); }
  const std::string &Path() const { return path_; }

 private:
  const std::string path_;
  bool removed_ = false;
  base::UniqueFd fd_;
  struct stat own_ {};
};

/// Why Open gave `error`, and what to do, for people; `orElse`: what else can be done about a live agent.
std::string WhyNotServed(const std::string &path, int error, const std::string &orElse = "");

}  // namespace eventrecord
