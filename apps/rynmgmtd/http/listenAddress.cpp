// Addresses of the HTTP server. Stateless: any thread.
#include "mgmtd/http/listenAddress.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>

#include "base/unixAddress.h"
#include "hosted/contexts/unixSocket.h"

namespace mgmtd {
namespace {

constexpr int kBacklog = 256;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList Resolve(const std::string &host, const std::string &port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo *found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) found = nullptr;
  return {found, freeaddrinfo};
}

bool IsLoopback(const addrinfo &info) {
  if (info.ai_family == AF_INET) {
    sockaddr_in address{};
    std::memcpy(&address, info.ai_addr, sizeof address);
    return ntohl(address.sin_addr.s_addr) >> 24 == 127;
  }
  sockaddr_in6 address{};
  std::memcpy(&address, info.ai_addr, sizeof address);
  return IN6_IS_ADDR_LOOPBACK(&address.sin6_addr);
}

std::string Failure(const std::string &where, int error) {
  return "cannot serve " + where + ": " + std::strerror(error);
}

std::string ListenOnPath(const std::string &path, base::UniqueFd *fd) {
  constexpr mode_t kMode = 0660;
  if (const int error = hosted::ServeUnixSocket(path, SOCK_STREAM, kMode, fd); error != 0) return Failure(path, error);
  return fcntl(fd->Get(), F_SETFL, O_NONBLOCK) == 0 ? "" : Failure(path, errno);
}

}  // namespace

std::string ListenAddress::Parse(const std::string &text, ListenAddress *out) {
  *out = {};
  if (text.starts_with('/')) {
    if (text.size() > base::kMaxSocketPath) return "the path \"" + text + "\" is too long for a socket";
    out->path = text;
    out->loopback = true;
    return "";
  }
  std::string wanted =
      "\"" + text + "\" is no address to serve: ADDRESS:PORT such as 127.0.0.1:8470 or [::1]:8470, or a path";
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) return wanted;
  const std::string port = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), out->port);
  if (error != std::errc() || end != port.data() + port.size()) return wanted;
  out->host = text.substr(0, colon);
  if (out->host.starts_with('[') != out->host.ends_with(']')) return wanted;
  if (out->host.starts_with('[')) {
    out->host = out->host.substr(1, out->host.size() - 2);
  } else if (out->host.find(':') != std::string::npos) {
    return wanted;
  }
  if (out->host == "localhost") out->host = "127.0.0.1";
  if (out->host.empty()) return wanted;
  const AddressList found = Resolve(out->host, port);
  if (found == nullptr) return wanted;
  out->loopback = IsLoopback(*found);
  return "";
}

std::string Listen(const ListenAddress &address, base::UniqueFd *fd, uint16_t *port) {
  *port = address.port;
  if (!address.path.empty()) return ListenOnPath(address.path, fd);
  const std::string where = address.host + " port " + std::to_string(address.port);
  const AddressList found = Resolve(address.host, std::to_string(address.port));
  if (found == nullptr) return Failure(where, EADDRNOTAVAIL);
  base::UniqueFd made(socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) return Failure(where, errno);
  constexpr int kOn = 1;
  setsockopt(made.Get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
  if (bind(made.Get(), found->ai_addr, found->ai_addrlen) != 0) return Failure(where, errno);
  if (listen(made.Get(), kBacklog) != 0) return Failure(where, errno);
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  if (getsockname(made.Get(), reinterpret_cast<sockaddr *>(&bound), &size) != 0) return Failure(where, errno);
  // The port stands at the same place in both families.
  sockaddr_in front{};
  std::memcpy(&front, &bound, sizeof front);
  *port = ntohs(front.sin_port);
  *fd = std::move(made);
  return "";
}

bool NamesLoopback(const std::string &host) {
  std::string name = host;
  const size_t colon = name.rfind(':');
  if (colon != std::string::npos && (name.front() != '[' || name[colon - 1] == ']')) {
    const std::string port = name.substr(colon + 1);
    if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos) return false;
    name.resize(colon);
  }
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  if (name == "localhost" || name == "[::1]") return true;
  in_addr address{};
  return inet_pton(AF_INET, name.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127;
}

}  // namespace mgmtd
