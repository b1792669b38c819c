#include "models/crashModel.h"

#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

namespace rynlinuxd {
namespace {

constexpr uint32_t kDumped = 0x80, kSignal = 0x7f;

std::string FileName(const std::string &path) {
  return path.substr(path.rfind('/') + 1);
}

/// `text` as the kernel puts it into the name of a core: no part of it is a folder.
std::string WithoutSlashes(std::string text) {
  std::replace(text.begin(), text.end(), '/', '!');
  return text;
}

/// What a pattern's `letter` stands for; nothing when it is not known here.
std::optional<std::string> Expand(char letter, const CrashFacts &facts, const ProcessEvent &exit) {
  switch (letter) {
    case '%':
      return "%";
    case 'p':
    case 'P':
      return std::to_string(exit.process);
    case 'i':
    case 'I':
      return std::to_string(exit.thread);
    case 'u':
      if (facts.user) return std::to_string(*facts.user);
      break;
    case 'g':
      if (facts.group) return std::to_string(*facts.group);
      break;
    case 's':
      return std::to_string(exit.exitCode & kSignal);
    case 't':
      return std::to_string(facts.atS);
    case 'h':
      return WithoutSlashes(facts.host);
    case 'e':
      if (!facts.name.empty()) return WithoutSlashes(facts.name);
      break;
    case 'f':
      if (!facts.executable.empty()) return FileName(facts.executable);
      break;
    case 'E':
      if (!facts.executable.empty()) return WithoutSlashes(facts.executable);
      break;
    default:
      break;
  }
  return std::nullopt;
}

std::string SignalText(uint32_t number) {
  const char *text = sigdescr_np(static_cast<int>(number));
  return "signal " + std::to_string(number) + (text == nullptr ? "" : std::string(" (") + text + ")");
}

}  // namespace

std::optional<ProcessEvent> ParseProcessEvent(std::span<const std::byte> datagram) {
  nlmsghdr netlink;
  cn_msg message;
  proc_event event;
  constexpr size_t kFixed = sizeof netlink + sizeof message;
  constexpr size_t kLeast = kFixed + offsetof(proc_event, event_data) + sizeof event.event_data.coredump;
  if (datagram.size() < kLeast) return std::nullopt;
  std::memcpy(&netlink, datagram.data(), sizeof netlink);
  std::memcpy(&message, datagram.data() + sizeof netlink, sizeof message);
  if (netlink.nlmsg_len > datagram.size() || message.id.idx != CN_IDX_PROC || message.id.val != CN_VAL_PROC)
    return std::nullopt;
  std::memset(static_cast<void *>(&event), 0, sizeof event);
  std::memcpy(static_cast<void *>(&event), datagram.data() + kFixed, std::min(datagram.size() - kFixed, sizeof event));
  constexpr uint32_t kCoreDump = 0x40000000, kExit = 0x80000000;
  const auto what = static_cast<uint32_t>(event.what);
  if (what == kCoreDump)
    return ProcessEvent{false, event.event_data.coredump.process_pid, event.event_data.coredump.process_tgid, 0};
  if (what == kExit) {
    return ProcessEvent{true, event.event_data.exit.process_pid, event.event_data.exit.process_tgid,
                        event.event_data.exit.exit_code};
  }
  return std::nullopt;
}

std::optional<uint64_t> ParseCoreLimit(const std::string &limits) {
  constexpr std::string_view kName = "Max core file size";
  const size_t at = limits.find(kName);
  if (at == std::string::npos) return std::nullopt;
  const size_t first = limits.find_first_not_of(' ', at + kName.size());
  if (first == std::string::npos) return std::nullopt;
  if (limits.compare(first, 9, "unlimited") == 0) return UINT64_MAX;
  uint64_t bytes = 0;
  const auto [end, error] = std::from_chars(limits.data() + first, limits.data() + limits.size(), bytes);
  if (error != std::errc()) return std::nullopt;
  return bytes;
}

std::string CorePlace(const CrashFacts &facts, const ProcessEvent &exit) {
  const std::string &pattern = facts.corePattern;
  if (pattern.starts_with('|')) return pattern.substr(1, pattern.find(' ') - 1) + ", to which it was given";
  std::string name;
  bool hasPid = false;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%' || i + 1 == pattern.size()) {
      name += pattern[i];
      continue;
    }
    ++i;
    hasPid = hasPid || pattern[i] == 'p';
    const auto value = Expand(pattern[i], facts, exit);
    name += value ? *value : std::string("%") + pattern[i];
  }
  if (facts.usesPid && !hasPid) name += '.' + std::to_string(exit.process);
  if (name.starts_with('/')) return name;
  if (facts.folder.empty()) return name + " in its working directory";
  return facts.folder + (facts.folder == "/" ? "" : "/") + name;
}

void CrashModel::Dumping(const ProcessEvent &event, CrashFacts facts) {
  if (dumping_.size() >= kMostDumping) dumping_.pop_front();
  dumping_.push_back({event, std::move(facts)});
}

void CrashModel::Exit(const ProcessEvent &event) {
  const auto found = std::find_if(dumping_.rbegin(), dumping_.rend(), [&](const Crash &crash) {
    return crash.event.thread == event.thread && crash.event.process == event.process;
  });
  if (found == dumping_.rend()) return;
  const CrashFacts facts = std::move(found->facts);
  dumping_.erase(std::next(found).base());
  const std::string name = facts.name.empty() ? "process " + std::to_string(event.process) : facts.name;
  const std::string signal = SignalText(event.exitCode & kSignal);
  if ((event.exitCode & kDumped) != 0) {
    reporter_->Tell({"ryn.uw.core.dumped",
                     "%s crashed, core in %s",
                     {Text(name), Number(int32_t{1}), Text(CorePlace(facts, event))}});
    return;
  }
  const bool isWanted = facts.coreLimit.value_or(0) != 0 && facts.isDumpable && !facts.corePattern.empty();
  if (isWanted) {
    reporter_->Tell(
        {"ryn.uw.core.dumpFailed", "%s crashed", {Text(name), Number(int32_t{1}), Text("ended by " + signal)}});
    return;
  }
  std::string text = name + " crashed by " + signal + " and left no core";
  if (facts.coreLimit == uint64_t{0}) text += ": its limit for one is 0 bytes";
  reporter_->Tell(External(Severity::kWarning, name, text));
}

}  // namespace rynlinuxd
