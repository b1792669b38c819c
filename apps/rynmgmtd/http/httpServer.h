// The agent's HTTP server: a loop that owns the connections, and a lane each for what memory, the file and the daemon
// answer, so that a slow query holds up no health check and a daemon that hangs no page.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "mgmtd/http/accessToken.h"
#include "mgmtd/http/api.h"
#include "mgmtd/http/listenAddress.h"

namespace mgmtd {

struct HttpOptions {
  std::string address;    ///< as ListenAddress reads it
  std::string tokenFile;  ///< "" for none, which only the loopback and a socket file may have
};

/// Start and Stop are one thread's. What the sources borrow must outlive it, and the feed must be stopped before Stop.
class HttpServer {
 public:
  HttpServer(HttpOptions options, Sources sources);
  ~HttpServer();

  /// "" or why it can't serve, naming the option.
  std::string Start();
  /// Close all connections and end the threads; a query at hand is finished before.
  void Stop();
  /// Where it serves, for people: "http://127.0.0.1:8470/" or the path of the socket.
  std::string Url() const;

 private:
  class Threads;

  const HttpOptions options_;
  const Sources sources_;
  AccessToken token_;
  ListenAddress address_;
  std::unique_ptr<Threads> threads_;
};

}  // namespace mgmtd
