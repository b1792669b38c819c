// Requests and their answers. For the lane's thread.
#include "mgmtd/http/answerer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "mgmtd/http/listenAddress.h"
#include "mgmtd/http/queryParameters.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

/// A request to read and an answer to write, in memory.
class MemoryStream : public httplib::Stream {
 public:
  explicit MemoryStream(const std::string &in) : in_(in) {}
  bool is_readable() const override { return true; }
  bool is_writable() const override { return true; }
  ssize_t read(char *bytes, size_t size) override {
    const size_t count = std::min(size, in_.size() - at_);
    std::memcpy(bytes, in_.data() + at_, count);
    at_ += count;
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char *bytes, size_t size) override {
    out.append(bytes, size);
    return static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string &, int &) const override {}
  void get_local_ip_and_port(std::string &, int &) const override {}
  socket_t socket() const override { return -1; }

  std::string out;

 private:
  const std::string &in_;
  size_t at_ = 0;
};

/// On every answer. Nothing may be loaded but the page's own files, the page stands in no frame, and a browser that is
/// asked to make markup of a text refuses.
const httplib::Headers &SafeHeaders() {
  static const httplib::Headers headers = {
      {"Content-Security-Policy",
       "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; base-uri 'none'; "
       "form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types 'none'"},
      {"X-Content-Type-Options", "nosniff"},
      {"X-Frame-Options", "DENY"},
      {"Referrer-Policy", "no-referrer"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cross-Origin-Opener-Policy", "same-origin"},
      {"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
      {"Cache-Control", "no-store"}};
  return headers;
}

std::string StreamHead() {
  std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n";
  for (const auto &[name, value] : SafeHeaders()) head.append(name).append(": ").append(value).append("\r\n");
  return head + "\r\n";
}

}  // namespace

void SetError(httplib::Response &response, int status, const std::string &text) {
  response.status = status;
  response.set_content(Dump({{"error", text}}) + "\n", "application/json");
}

Answerer::Answerer(const AccessToken *token, bool localNamesOnly)
    : token_(token), localNamesOnly_(localNamesOnly), streamHead_(StreamHead()) {
  set_default_headers(SafeHeaders());
  set_pre_routing_handler([this](const httplib::Request &request, httplib::Response &response) {
    std::string why;
    const int status = Refuse(request, &why);
    if (status == 0) return HandlerResponse::Unhandled;
    SetError(response, status, why);
    if (status == 405) response.set_header("Allow", "GET, HEAD");
    if (status == 401) response.set_header("WWW-Authenticate", "Bearer");
    return HandlerResponse::Handled;
  });
  set_exception_handler([](const httplib::Request &, httplib::Response &response, std::exception_ptr thrown) {
    try {
      std::rethrow_exception(std::move(thrown));
    } catch (const BadParameter &error) {
      SetError(response, 400, error.what());
    } catch (const StoreError &error) {
      SetError(response, 503, error.what());
    } catch (const std::exception &error) {
      SetError(response, 500, error.what());
    }
  });
  set_error_handler([](const httplib::Request &request, httplib::Response &response) {
    if (!response.body.empty()) return;
    SetError(response, response.status, response.status == 404 ? "nothing is at " + request.path : "a bad request");
  });
}

int Answerer::Refuse(const httplib::Request &request, std::string *why) const {
  if (request.method != "GET" && request.method != "HEAD") {
    *why = "this server only shows";
    return 405;
  }
  if (localNamesOnly_ && !NamesLoopback(request.get_header_value("Host"))) {
    *why = "ask for this host by localhost or its loopback address, not by another name";
    return 421;
  }
  const auto entry = open_.find(request.path);
  if (entry == open_.end() || entry->second) return 0;
  // Another site's page may not even make this host work; what is typed or scripted has no such header.
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  if (site == "cross-site" || site == "same-site") {
    *why = "not for another site's page";
    return 403;
  }
  if (!token_->IsShownBy(request.get_header_value("Authorization"))) {
    *why = "show the access token: Authorization: Bearer TOKEN";
    return 401;
  }
  return 0;
}

void Answerer::Serve(const std::string &path, bool open, Handler handler) {
  std::string pattern;
  for (const char c : path) pattern += c == '.' ? std::string("\\.") : std::string(1, c);
  open_[path] = open;
  Get(pattern, std::move(handler));
}

Answer Answerer::Reply(const std::string &head) {
  MemoryStream stream(head);
  stream_.reset();
  std::string body;
  bool closed = false;
  process_request(stream, true, closed, [](httplib::Request &request) {
    request.ranges.clear();  // parts of an answer, however often each, are not for sale
    request.headers.erase("Range");
  });
  if (!stream_) return {std::move(stream.out), std::nullopt};
  const size_t end = stream.out.find("\r\n\r\n");
  body = end == std::string::npos ? "" : stream.out.substr(end + 4);
  return {streamHead_ + body, stream_};
}

}  // namespace mgmtd
