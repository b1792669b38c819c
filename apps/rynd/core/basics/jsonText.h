// Writing JSON by hand, since the daemon needs no more of it than this. Any thread. Everything throws std::bad_alloc.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace rynd {

/// Append `text` as a JSON string. What no terminal should be given is written as \uNNNN; bytes that are no UTF-8
/// become U+FFFD.
void AppendJsonText(std::string *out, std::string_view text);

/// An object or an array that is appended to `out` member by member, commas included, from its opening bracket to its
/// closing one, which its end writes.
class JsonScope {
 public:
  /// `bracket` is '{' or '['.
  JsonScope(std::string *out, char bracket) : out_(out), closing_(bracket == '{' ? '}' : ']') { *out_ += bracket; }
  JsonScope(const JsonScope &) = delete;
  JsonScope &operator=(const JsonScope &) = delete;

  /// Write the comma in front of the next element, if one is needed; what follows is its value.
  JsonScope &Next() {
    if (!isFirst_) *out_ += ',';
    isFirst_ = false;
    return *this;
  }
  /// Write the next member's name; what follows is its value. `name` must need no escapes.
  JsonScope &Key(std::string_view name);
  void Text(std::string_view name, std::string_view value) { AppendJsonText(Key(name).out_, value); }
  void Number(std::string_view name, uint64_t value) { *Key(name).out_ += std::to_string(value); }
  void Flag(std::string_view name, bool value) { *Key(name).out_ += value ? "true" : "false"; }
  void Close() { *out_ += closing_; }
  std::string *Out() { return out_; }

 private:
  std::string *const out_;
  const char closing_;
  bool isFirst_ = true;
};

}  // namespace rynd
