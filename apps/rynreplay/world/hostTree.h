// The host that the correlators of a replay ask: what the recording says that they were answered, or what a test puts
// there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace replay {

/// What is asked of the host: the text of a file, the names in a folder, whether something is there; or what is done to
/// it: a file replaced, an action carried out.
enum class HostOperation : uint8_t { kText, kList, kExists, kWrite, kAction };

/// One question, by a path below the host tree or the name of an action, and its answer: 0 or an errno value, and for a
/// list the names as path components, each with a line end.
struct HostAnswer {
  HostOperation operation;
  std::string path;
  int status;
  std::string bytes;
};

class HostTree {
 public:
  /// From now on `path` holds `text`, whatever else is told.
  void Fix(const std::string &path, const std::string &text);
  /// `path` holds `text`, until something newer is told.
  void Put(const std::string &path, const std::string &text);
  void Remove(const std::string &path);

  /// What the current step is answered, in this order among those of one path; in place of what was told before. All of
  /// it is known from then on.
  void Tell(std::vector<HostAnswer> answers);
  HostAnswer Ask(HostOperation operation, std::string_view path);
  /// A file was replaced, or an action carried out, as told: what it came to, 0 where nothing was told.
  int Do(HostOperation operation, std::string_view path, std::string_view bytes);

  /// Called with what nothing was known of and what was done: `answer` was made up of the files that are known.
  using Heard = void (*)(const HostAnswer &answer, bool isKnown);
  void HearBy(Heard heard) { heard_ = heard; }

 private:
  const HostAnswer *TakeTold(HostOperation operation, std::string_view path);
  HostAnswer FromFiles(HostOperation operation, const std::string &path) const;

  std::map<std::string, std::string> fixed_;
  std::map<std::string, std::string> files_;
  /// The newest answers to what no file of known text answers.
  std::map<std::pair<HostOperation, std::string>, HostAnswer> known_;
  std::vector<HostAnswer> told_;
  std::vector<bool> isTaken_;
  Heard heard_ = nullptr;
};

}  // namespace replay
