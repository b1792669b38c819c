// Problems as alerts of an Alertmanager.
#pragma once

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "mgmtd/sinks/sink.h"

namespace mgmtd {

/// Where an Alertmanager is reached: "http://am.example:9093" and "/prefix" (mostly "").
struct AlertmanagerUrl {
  std::string server, prefix;
  /// "" or what is wrong with `text`, naming it.
  static std::string Parse(const std::string &text, AlertmanagerUrl *out);
};

/// Sends what changes at once, the ended ones as resolved, and all that is open every minute. Order counts: the last
/// that is said of a problem is how it is.
class AlertmanagerSink : public Sink {
 public:
  /// `text`: the URL as it was given, which is also its name. `resend`: how often open problems are sent again.
  AlertmanagerSink(const std::string &text, const AlertmanagerUrl &url, std::chrono::milliseconds resend,
                   const std::string &storePath, Feed *feed, Writer *writer);
  void Stop() override;

 protected:
  void Run() override;
  int64_t Lag(const Marks &at, const Marks &newest) const override { return newest.change - at.change; }

 private:
  bool PassChanges(bool *gaveUp);
  bool SendOpen();
  bool SendAll(std::span<const Problem> problems, bool isNews);
  Outcome Send(std::span<const Problem> problems, std::string *error);

  const std::string path_;
  const std::chrono::milliseconds resend_;
  const std::string host_;
  httplib::Client client_;
  bool failed_ = false;  ///< since the open problems were last sent
};

/// An alert of the API's version 2, as of `nowUs`: one that is not repeated ends by itself an hour later, so that it
/// outlasts a restart of the agent, or of its host.
nlohmann::ordered_json AlertOf(const Problem &problem, const std::string &host, int64_t nowUs);

}  // namespace mgmtd
