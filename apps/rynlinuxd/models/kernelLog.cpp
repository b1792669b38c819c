#include "models/kernelLog.h"

#include <charconv>

namespace rynlinuxd {
namespace {

bool TakePrefix(std::string_view *text, std::string_view prefix) {
  if (!text->starts_with(prefix)) return false;
  text->remove_prefix(prefix.size());
  return true;
}

bool TakeNumber(std::string_view *text, uint32_t *number) {
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
  if (error != std::errc()) return false;
  text->remove_prefix(static_cast<size_t>(end - text->data()));
  return true;
}

/// "\x0a" and the like, as the kernel writes bytes that are not to be shown.
std::string Unescape(std::string_view text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    uint8_t byte = 0;
    const char *hex = text.data() + i + 2;
    if (text.substr(i).starts_with("\\x") && i + 4 <= text.size() &&
        std::from_chars(hex, hex + 2, byte, 16).ptr == hex + 2) {
      plain += static_cast<char>(byte);
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

/// The text of a record of the kernel's own facility; "" for others.
std::string_view OwnText(std::string_view record) {
  uint32_t priority = 0;
  constexpr uint32_t kSeverities = 8;
  if (!TakeNumber(&record, &priority) || priority >= kSeverities) return "";
  const size_t header = record.find(';');
  if (header == std::string_view::npos) return "";
  const std::string_view text = record.substr(header + 1);
  return text.substr(0, text.find('\n'));
}

}  // namespace

std::optional<OomKill> ParseOomKill(std::string_view record) {
  uint32_t process = 0;
  std::string_view text = OwnText(record);
  OomKill kill;
  kill.isOfGroup = TakePrefix(&text, "Memory cgroup out of memory: Killed process ");
  if (!kill.isOfGroup && !TakePrefix(&text, "Out of memory: Killed process ")) return std::nullopt;
  if (!TakeNumber(&text, &process) || !TakePrefix(&text, " (")) return std::nullopt;
  // A program may be called anything.
  const size_t end = text.rfind(") total-vm:");
  if (end == std::string_view::npos) return std::nullopt;
  kill.process = static_cast<int32_t>(process);
  kill.name = Unescape(text.substr(0, end));
  return kill;
}

std::optional<DuplicateLine> ParseDuplicateLine(std::string_view record) {
  constexpr std::string_view kWhat = ": IPv6 duplicate address ", kBy = " used by ", kEnd = " detected!";
  std::string_view text = OwnText(record);
  if (!TakePrefix(&text, "IPv6: ") || !text.ends_with(kEnd)) return std::nullopt;
  text.remove_suffix(kEnd.size());
  // From the end: a link may be called anything.
  const size_t by = text.rfind(kBy), what = text.rfind(kWhat, by);
  if (by == std::string_view::npos || what == std::string_view::npos) return std::nullopt;
  const size_t address = what + kWhat.size();
  return DuplicateLine{Unescape(text.substr(0, what)), std::string(text.substr(address, by - address)),
                       std::string(text.substr(by + kBy.size()))};
}

}  // namespace rynlinuxd
