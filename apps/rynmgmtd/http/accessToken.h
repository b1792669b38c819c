// The secret that a client shows where anybody can reach the server. Constant after construction: any thread.
#pragma once

#include <string>
#include <string_view>

namespace mgmtd {

/// A bearer token; an empty one asks for nothing.
class AccessToken {
 public:
  AccessToken() = default;
  /// Read the first line of the file `path`, which must be a plain file that others may not read, with 16 to 1024
  /// printable characters and no blank. "" or what is wrong with it.
  static std::string Read(const std::string &path, AccessToken *out);

  bool Wanted() const { return !token_.empty(); }
  /// True when `authorization`, the value of that header, shows the token; takes as long whatever it says.
  bool IsShownBy(std::string_view authorization) const;

 private:
  std::string token_;
};

}  // namespace mgmtd
