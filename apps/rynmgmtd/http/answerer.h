// Requests and their answers, as texts: the HTTP library's parsing and routing without its sockets and threads, which
// one slow client would hold.
#pragma once

#include <httplib.h>

#include <optional>
#include <string>

#include "mgmtd/http/accessToken.h"
#include "mgmtd/http/connectionLoop.h"

namespace mgmtd {

/// Answers for one lane: routes are added with Get before the first request. For the lane's thread.
class Answerer : private httplib::Server {
 public:
  /// `token` is borrowed. `localNamesOnly`: refuse a request whose Host header is no name of the loopback.
  Answerer(const AccessToken *token, bool localNamesOnly);

  /// Add an answer to GET and HEAD; `open`: also for those who show no token. A StoreError that `handler` throws is
  /// answered with 503 and its text.
  void Serve(const std::string &path, bool open, Handler handler);
  /// The answer to a whole request head.
  Answer Reply(const std::string &head);
  /// For a handler: what is being answered is a stream from `from` on, which begins with the response's body.
  void Stream(const Marks &from) { stream_ = from; }

 private:
  /// Status and text of a refusal, or 0.
  int Refuse(const httplib::Request &request, std::string *why) const;

  const AccessToken *const token_;
  const bool localNamesOnly_;
  std::map<std::string, bool> open_;  ///< by path
  std::optional<Marks> stream_;
  std::string streamHead_;
};

/// Answer with `status` and {"error": `text`}.
void SetError(httplib::Response &response, int status, const std::string &text);

}  // namespace mgmtd
