// All sinks of an agent, as its command line asks for them.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "mgmtd/sinks/sink.h"

namespace mgmtd {

struct SinkOptions {
  bool journal = false;
  std::vector<std::string> alertmanagers{};  ///< URLs
  std::string exec{};                        ///< a program, "" for none
  std::chrono::milliseconds resend{60'000};
  std::chrono::milliseconds execLimit{30'000};
};

/// Start and Stop are one thread's, Statuses any thread's between them. Start comes behind the writer's, Stop in front
/// of its, so that the last positions are committed.
class Sinks {
 public:
  /// `feed` and `writer` are borrowed.
  Sinks(SinkOptions options, std::string storePath, Feed *feed, Writer *writer);
  ~Sinks();
  /// "" or what is wrong with an option, naming it.
  std::string Start();
  void Stop();
  std::vector<SinkStatus> Statuses() const;

 private:
  const SinkOptions options_;
  const std::string storePath_;
  Feed *const feed_;
  Writer *const writer_;
  std::vector<std::unique_ptr<Sink>> sinks_;
};

}  // namespace mgmtd
