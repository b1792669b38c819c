#include "sink/ledger.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "hosted/host/hostTree.h"
#include "hosted/store/flatJson.h"
#include "sink/textFile.h"

namespace rynlinuxd {
namespace {

constexpr std::string_view kTold = "told ";
constexpr const char *kRuns[] = {"", "running", "ended", "host stopped"};
constexpr size_t kMostBytes = size_t{16} << 20;

/// "12 =up" is a state that was taken over 12 seconds after the boot; "12 +up" one that was told then.
std::string Format(const Told &told) {
  return std::to_string(told.atS) + (told.isBaseline ? " =" : " +") + told.state;
}

Told ParseTold(std::string_view text) {
  Told told;
  const size_t blank = text.find(' ');
  if (blank == std::string_view::npos || blank + 1 == text.size()) return told;
  std::from_chars(text.data(), text.data() + blank, told.atS);
  text.remove_prefix(blank + 1);
  told.isBaseline = text.starts_with('=');
  told.state = text.substr(1);
  return told;
}

}  // namespace

void Ledger::Load(std::string path, std::string bootId) {
  path_ = std::move(path);
  bootId_ = std::move(bootId);
  std::string text;
  if (!path_.empty() && ReadTextFile(path_, kMostBytes, &text) == 0) Parse(text, bootId_);
}

void Ledger::Parse(std::string_view text, const std::string &bootId) {
  hosted::FlatJson members;
  if (!hosted::ParseFlatJson(text, &members)) return;
  std::string boot;
  for (auto &[name, value] : members) {
    if (name == "boot") boot = value;
    if (name == "daemon") daemon_ = value;
    if (name == "run") {
      for (const Run run : {Run::kRunning, Run::kEnded, Run::kHostStopped}) {
        if (value == kRuns[static_cast<size_t>(run)]) previous_ = run;
      }
    }
    if (name.starts_with(kTold)) told_[name.substr(kTold.size())] = ParseTold(value);
  }
  isNewBoot_ = previous_ != Run::kNone && boot != bootId;
  if (isNewBoot_) {
    for (auto &[key, told] : told_) told.atS = 0;
  }
  // What is fine again need not be remembered.
  std::erase_if(told_, [](const auto &entry) { return entry.second.state.empty(); });
}

const Told *Ledger::Find(const std::string &key) const {
  const auto found = told_.find(key);
  return found == told_.end() ? nullptr : &found->second;
}

void Ledger::Set(const std::string &key, Told told) {
  if (told_.size() >= kMostObjects && !told_.contains(key)) return;
  told_[key] = std::move(told);
  isDirty_ = true;
}

std::map<std::string, Told> Ledger::Below(const std::string &prefix) const {
  std::map<std::string, Told> below;
  for (auto at = told_.lower_bound(prefix); at != told_.end() && at->first.starts_with(prefix); ++at) {
    below.emplace(at->first.substr(prefix.size()), at->second);
  }
  return below;
}

bool Ledger::Admit(const Report &report, int64_t nowS) {
  if (report.key.empty()) return true;
  const auto isTold = [this](const std::string &key) {
    const Told *other = Find(key);
    return other != nullptr && !other->state.empty();
  };
  if (std::any_of(report.ends.begin(), report.ends.end(), isTold)) return true;
  const Told *told = Find(report.key);
  if (told == nullptr) {
    if (report.isBaseline) Set(report.key, {report.state, nowS, true, false});
    return !report.isBaseline && !report.state.empty();
  }
  if (told->state != report.state || report.isLastWord) return true;
  if (!told->isStale || told->isBaseline) return false;
  return report.isOpen || (told->atS != 0 && nowS - told->atS < kUnsureS);
}

void Ledger::RecordTold(const Report &report, int64_t nowS) {
  if (!report.key.empty()) Set(report.key, {report.state, nowS, false, false});
  for (const std::string &key : report.ends) {
    if (Find(key) != nullptr) Set(key, {"", nowS, false, false});
  }
}

void Ledger::SetDaemon(std::string daemon) {
  if (daemon == daemon_) return;
  daemon_ = std::move(daemon);
  isDirty_ = true;
}

void Ledger::MarkStale() {
  for (auto &[key, told] : told_) told.isStale = true;
}

void Ledger::SetRun(Run run) {
  run_ = run;
  isDirty_ = true;
}

void Ledger::Save() {
  if (!isDirty_ || path_.empty()) return;
  hosted::FlatJson members = {{"boot", bootId_}, {"run", kRuns[static_cast<size_t>(run_)]}, {"daemon", daemon_}};
  for (const auto &[key, told] : told_) members.emplace_back(std::string(kTold) + key, Format(told));
  // A failure is logged; what changes next tries again.
  hosted::ReplaceFile(path_, hosted::FormatFlatJson(members) + '\n');
  isDirty_ = false;
}

}  // namespace rynlinuxd
