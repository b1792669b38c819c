#include "flight/redact.h"

#include <sys/random.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <deque>
#include <unordered_map>
#include <vector>

#include "flight/pseudonyms.h"
#include "flight/reader.h"
#include "flight/writer.h"

namespace flight {
namespace {

// A raw record: a header with three lengths, id, message, arguments of 8 bytes and their payload each.
constexpr size_t kRecordHeader = 32, kIdLengthAt = 24, kMessageLengthAt = 28, kArgumentHeader = 8;
constexpr std::byte kStringArgument{3};
// An event record: header, UUID, lengths, name, descriptors of 16 bytes, texts.
constexpr size_t kEventUuidAt = 16, kUuidSize = 36, kCountAt = 60, kNameLengthAt = 64, kNameAt = 68;
constexpr size_t kDescriptor = 16;
constexpr uint32_t kStringDescriptor = 3;

template <typename T>
T Load(const std::vector<std::byte> &bytes, size_t at) {
  T value{};
  if (at <= bytes.size() && bytes.size() - at >= sizeof value) std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

/// The part of `bytes` from `at` on, at most `size` long and never beyond their end.
std::span<char> Part(std::vector<std::byte> *bytes, uint64_t at, uint64_t size) {
  const uint64_t from = std::min<uint64_t>(at, bytes->size());
  return {reinterpret_cast<char *>(bytes->data()) + from, std::min<uint64_t>(size, bytes->size() - from)};
}

/// What of a host's answer is a name.
struct HostRule {
  std::string_view prefix;  ///< of the path
  size_t keptComponents;    ///< of the path, in front; the others are names
  bool isContentName;
};
constexpr size_t kAll = 100;
constexpr auto kHostRules = std::to_array<HostRule>({
    {"sysinfo/system/systemUuid", kAll, true},
    {"sysinfo/vm/", kAll, true},
    {"sysinfo/", kAll, false},
    {"machine/uuid", kAll, true},
    {"machine/", kAll, false},
    {"root/", kAll, true},
    {"vms/", kAll, true},
    {"configstore/", kAll, false},
    {"storage/swap/", kAll, true},
    {"", 2, true},
});

/// One copy in the making.
class Redactor {
 public:
  explicit Redactor(std::ostream *out) : pseudonyms_(Key()), writer_(out) {}

  void Copy(Entry entry) {
    if (auto *start = std::get_if<Start>(&entry.what)) {
      start->root = start->bootId = "";
    } else if (auto *seen = std::get_if<Observation>(&entry.what)) {
      Redact(seen);
    } else if (auto *taken = std::get_if<Taken>(&entry.what)) {
      const auto known = hashes_.find(taken->hash);
      if (known != hashes_.end()) taken->hash = known->second;
    } else if (auto *host = std::get_if<HostAnswer>(&entry.what)) {
      Redact(host);
    } else if (auto *event = std::get_if<Event>(&entry.what)) {
      Redact(event);
    }
    writer_.Append(entry);
  }
  bool IsFull() const { return pseudonyms_.IsFull(); }

 private:
  static uint64_t Key() {
    uint64_t key = 0;
    return getrandom(&key, sizeof key, 0) == sizeof key ? key : 1;
  }

  void Redact(Observation *seen) {
    bytes_.assign(seen->record.begin(), seen->record.end());
    size_t at = kRecordHeader + Load<uint32_t>(bytes_, kIdLengthAt) + Load<uint32_t>(bytes_, kMessageLengthAt);
    while (at + kArgumentHeader <= bytes_.size()) {
      const auto length = Load<uint32_t>(bytes_, at + 4);
      if (bytes_[at] == kStringArgument) pseudonyms_.Replace(Part(&bytes_, at + kArgumentHeader, length));
      at += kArgumentHeader + length;
    }
    Remember(RecordHash(seen->record.data(), seen->record.size()), RecordHash(bytes_.data(), bytes_.size()));
    seen->record = bytes_;
  }

  /// What is taken later refers to the record by its hash.
  void Remember(uint64_t before, uint64_t now) {
    constexpr size_t kMost = 1'000'000;  // observations that wait for an agent, by far
    if (!hashes_.insert_or_assign(before, now).second) return;
    order_.push_back(before);
    if (order_.size() <= kMost) return;
    hashes_.erase(order_.front());
    order_.pop_front();
  }

  void Redact(Event *event) {
    bytes_.assign(event->record.begin(), event->record.end());
    pseudonyms_.ReplaceKnown(Part(&bytes_, kEventUuidAt, kUuidSize));
    const uint64_t area = kNameAt + uint64_t{Load<uint32_t>(bytes_, kNameLengthAt)};
    const uint64_t count = std::min<uint64_t>(Load<uint32_t>(bytes_, kCountAt), bytes_.size() / kDescriptor);
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t at = area + i * kDescriptor;
      if (Load<uint32_t>(bytes_, at) != kStringDescriptor) continue;
      pseudonyms_.ReplaceKnown(Part(&bytes_, area + Load<uint64_t>(bytes_, at + 8), Load<uint32_t>(bytes_, at + 4)));
    }
    event->record = bytes_;
  }

  void Redact(HostAnswer *host) {
    path_ = host->path;
    content_ = host->content;
    const bool isOutput = host->what == HostKind::kWrite || host->what == HostKind::kAction;
    if (isOutput || path_.starts_with("configstore/")) {
      pseudonyms_.ReplaceKnown(content_);
    } else {
      const HostRule &rule =
          *std::ranges::find_if(kHostRules, [&](const HostRule &one) { return path_.starts_with(one.prefix); });
      ReplaceBehind(rule.keptComponents);
      const auto isOf = [this](std::string_view name) { return path_.ends_with(name); };
      if (rule.isContentName && !isOf("/partitions") && !isOf("/redundancy") && !isOf("/disk")) {
        content_ = host->what == HostKind::kList ? ReplaceEncoded(content_) : Replaced(content_);
      }
    }
    host->path = path_;
    host->content = content_;
  }

  std::string Replaced(std::string text) {
    pseudonyms_.Replace(text);
    return text;
  }

  /// Replace the names in the components of `path_` behind the first `kept`.
  void ReplaceBehind(size_t kept) {
    std::string made;
    size_t component = 0;
    for (size_t at = 0; at <= path_.size(); ++component) {
      const size_t end = std::min(path_.find('/', at), path_.size());
      const std::string part = path_.substr(at, end - at);
      const bool isFixed = component < kept || part == "redundancy" || part == "disk" || part == "partitions" ||
                           made.ends_with("/partitions/");
      made += isFixed ? part : ReplaceEncoded(part);
      if (end < path_.size()) made += '/';
      at = end + 1;
    }
    path_ = made;
  }

  /// Names stand in paths with some characters as %XX, which are no part of a word.
  std::string ReplaceEncoded(const std::string &text) {
    std::string made, part;
    const auto flush = [&] { made += Replaced(std::exchange(part, "")); };
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '%') {
        part += text[i];
        continue;
      }
      flush();
      const size_t length = std::min<size_t>(3, text.size() - i);
      made += text.substr(i, length);
      i += length - 1;
    }
    flush();
    return made;
  }

  Pseudonyms pseudonyms_;
  Writer writer_;
  std::vector<std::byte> bytes_;
  std::string path_, content_;
  std::unordered_map<uint64_t, uint64_t> hashes_;  ///< of raw records: before, now
  std::deque<uint64_t> order_;                     ///< in which they came
};

}  // namespace

std::string Redact(const std::string &from, std::ostream *out) {
  std::string error;
  const std::unique_ptr<Reader> reader = Reader::Open(from, &error);
  if (reader == nullptr) return error;
  Redactor redactor(out);
  for (Entry entry; reader->Next(&entry);) redactor.Copy(entry);
  if (redactor.IsFull()) return from + ": more than a million names, which cannot be told apart in a copy";
  return "";
}

}  // namespace flight
