#include "models/storage/dmDevice.h"

#include <charconv>

namespace rynlinuxd {
namespace {

/// Words parted by blanks, of which some are counts of those that follow.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}

  /// "" at the end.
  std::string_view Next() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size()));
    const size_t end = std::min(rest_.find(' '), rest_.size());
    const std::string_view word = rest_.substr(0, end);
    rest_.remove_prefix(end);
    return word;
  }
  bool NextCount(size_t *count) {
    const std::string_view word = Next();
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), *count);
    return error == std::errc() && end == word.data() + word.size() && *count <= rest_.size();
  }
  bool Skip(size_t count) {
    for (; count > 0; --count) {
      if (Next().empty()) return false;
    }
    return true;
  }

 private:
  std::string_view rest_;
};

bool ReadQueueing(std::string_view table, bool *isQueueing) {
  Words words(table);
  size_t features = 0;
  if (!words.NextCount(&features)) return false;
  *isQueueing = false;
  for (; features > 0; --features) *isQueueing = words.Next() == "queue_if_no_path" || *isQueueing;
  return true;
}

/// One group: its state, words about itself, then its paths with words about each.
bool ReadGroup(Words *words, DmDevice *device) {
  size_t about = 0, paths = 0, aboutPath = 0;
  if (!words->Skip(1) || !words->NextCount(&about) || !words->Skip(about)) return false;
  if (!words->NextCount(&paths) || !words->NextCount(&aboutPath)) return false;
  for (; paths > 0; --paths) {
    const std::string number(words->Next());
    const std::string_view state = words->Next();
    if (state != "A" && state != "F") return false;
    device->isActive[number] = state == "A";
    if (!words->Skip(1 + aboutPath)) return false;
  }
  return true;
}

}  // namespace

std::optional<DmDevice> ParseDmDevice(std::string_view status, std::string_view table) {
  DmDevice device;
  Words words(status);
  size_t features = 0, handler = 0, groups = 0;
  if (!ReadQueueing(table, &device.isQueueing)) return std::nullopt;
  if (!words.NextCount(&features) || !words.Skip(features)) return std::nullopt;
  if (!words.NextCount(&handler) || !words.Skip(handler)) return std::nullopt;
  // How many groups there are, and which is next.
  if (!words.NextCount(&groups) || !words.Skip(1)) return std::nullopt;
  for (; groups > 0; --groups) {
    if (!ReadGroup(&words, &device)) return std::nullopt;
  }
  return device;
}

std::string DmName(const std::string &uuid, const std::string &name) {
  constexpr std::string_view kMaker = "mpath-";
  return uuid.starts_with(kMaker) && uuid.size() > kMaker.size() ? uuid.substr(kMaker.size()) : name;
}

}  // namespace rynlinuxd
