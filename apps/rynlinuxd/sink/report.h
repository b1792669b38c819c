// What a source has to tell the daemon: one observation, and of a state what it is the state of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosted/records/rawRecord.h"

namespace rynlinuxd {

/// A file of the host tree, and what it is to hold.
struct HostFile {
  std::string path;
  std::string text;
};

/// One observation. With an empty `key` it is told once, whatever was told before; else it is a state of the object
/// that `key` names for good (by MAC, UUID and the like), and told when that object's last told state is another one.
struct Report {
  std::string id;       ///< "ryn." included
  std::string message;  ///< for the trace feed
  std::vector<hosted::RawArgument> arguments;
  std::string key{};
  std::string state{};              ///< "" is how an object is that nothing was ever told of
  bool isOpen = false;              ///< a problem: told again to a daemon that was started anew
  bool isBaseline = false;          ///< of an object that is new to the ledger, kept without telling it
  bool isLastWord = false;          ///< told even when it is the last told state
  std::vector<std::string> ends{};  ///< keys of other states that this one ends, without a word of their own
  std::vector<HostFile> files{};    ///< that the daemon reads when it gets this: written before it is sent
};

inline hosted::RawArgument Text(std::string_view text) {
  // A text ends at a NUL, which nothing that the kernel names has.
  return {hosted::ArgumentKind::kString, 0, 0, std::string(text.substr(0, text.find('\0')))};
}
template <typename T>
hosted::RawArgument Number(T value) {
  const auto kind = T(-1) < T(0) ? hosted::ArgumentKind::kSigned : hosted::ArgumentKind::kUnsigned;
  return {kind, sizeof value, static_cast<uint64_t>(value), {}};
}

/// What a fact that has no id of its own goes out as.
enum class Severity { kInfo, kWarning, kError };

/// `component` says `text`; this program's manual is what is to be read about it.
inline Report External(Severity severity, std::string_view component, std::string_view text) {
  constexpr const char *kIds[] = {"ryn.external.info", "ryn.external.warning", "ryn.external.error"};
  return {kIds[static_cast<size_t>(severity)], "%s %s %s", {Text(component), Text("man:rynlinuxd(8)"), Text(text)}};
}

/// Takes what sources tell.
class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void Tell(Report report) = 0;
};

}  // namespace rynlinuxd
