// The parameters of a request, read strictly: what is not understood is refused by name.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace mgmtd {

/// what() names the parameter.
struct BadParameter : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// For the request's thread; every call throws BadParameter.
class QueryParameters {
 public:
  /// `known`: all that the request may have. `request` is borrowed.
  QueryParameters(const httplib::Request &request, std::initializer_list<std::string_view> known);

  /// "" when it is not there.
  std::string Text(const char *name) const;
  std::vector<std::string> Texts(const char *name) const;
  int64_t Number(const char *name, int64_t otherwise, int64_t low, int64_t high) const;
  /// As text::ParseTime reads it.
  std::optional<int64_t> Time(const char *name) const;
  /// One of `choices`, or "" when it is not there.
  std::string Choice(const char *name, std::initializer_list<std::string_view> choices) const;

 private:
  const httplib::Request &request_;
};

}  // namespace mgmtd
