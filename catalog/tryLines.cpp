// Commands that make the daemon post, from the catalogue's examples. Stateless: any thread.
#include <algorithm>

#include "catalog/explain.h"

namespace catalog {
namespace {

constexpr std::string_view kRoot = "$CORVANE_ROOT";

/// `word` as a shell takes it for one word.
std::string Quoted(const std::string &word) {
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=./:,@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string SubmitLine(const std::string &id, const std::vector<std::string> &words) {
  std::string line = id.starts_with("ryn.user.") ? "rynctl submit --user " + id : "rynctl submit " + id;
  for (const std::string &word : words) line += " " + Quoted(word);
  return line;
}

/// The example of `observation` that leads to `event` and to the fewest others; null when none does.
const Try *TryFor(const Observation &observation, const Event &event) {
  const Try *best = nullptr;
  for (const Try &one : observation.tries) {
    if (std::ranges::find(one.posts, event.name) == one.posts.end()) continue;
    if (best == nullptr || one.posts.size() < best->posts.size()) best = &one;
  }
  return best;
}

std::vector<std::string> LinesOf(const Observation &observation, const Try &one) {
  std::vector<std::string> lines;
  if (!one.tree.empty()) lines.push_back("cd " + std::string(kRoot) + "/var/lib/corvane/host");
  for (const auto &[path, text] : one.tree) {
    lines.push_back("mkdir -p " + Quoted(path.substr(0, path.rfind('/'))));
    lines.push_back("echo " + Quoted(text) + " > " + Quoted(path));
  }
  if (one.link) lines.push_back("ln -sfn " + one.link->second + " " + std::string(kRoot) + one.link->first);
  for (const std::vector<std::string> &before : one.before) {
    lines.push_back(SubmitLine(before.front(), {before.begin() + 1, before.end()}));
  }
  const std::string submit = SubmitLine(observation.id, one.words);
  if (one.times == 1) {
    lines.push_back(submit);
  } else {
    lines.push_back("for i in $(seq " + std::to_string(one.times) + "); do");
    lines.push_back("  " + submit);
    if (one.everyMs > 0) lines.push_back("  sleep 0." + std::to_string(1000 + one.everyMs).substr(1));
    lines.emplace_back("done");
  }
  return lines;
}

}  // namespace

std::vector<std::string> TryLines(const Observation &observation) {
  return LinesOf(observation, observation.tries.front());
}

std::vector<std::string> TryLines(const Event &event) {
  const Try *best = nullptr;
  const Observation *source = nullptr;
  for (const std::string &id : event.postedBy) {
    const Observation *observation = FindObservation(id);
    const Try *one = observation == nullptr ? nullptr : TryFor(*observation, event);
    if (one == nullptr || (best != nullptr && best->posts.size() <= one->posts.size())) continue;
    best = one;
    source = observation;
  }
  return best == nullptr ? event.tryLines : LinesOf(*source, *best);
}

}  // namespace catalog
