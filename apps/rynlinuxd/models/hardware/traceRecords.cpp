#include "models/hardware/traceRecords.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace rynlinuxd {
namespace {

template <typename T>
T Load(std::span<const std::byte> bytes) {
  T value{};
  if (bytes.size() >= sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

/// The number behind `name` in `line`, such as "offset:". False when there is none.
template <typename T>
bool NumberBehind(std::string_view line, std::string_view name, T *number) {
  const size_t at = line.find(name);
  if (at == std::string_view::npos) return false;
  line.remove_prefix(std::min(line.find_first_not_of(' ', at + name.size()), line.size()));
  return std::from_chars(line.data(), line.data() + line.size(), *number).ec == std::errc();
}

// The page: when it begins; how many bytes of records it has, with flags above; the records.
constexpr size_t kCommitAt = 8, kRecordsAt = 16;
constexpr uint64_t kCommitMask = (1 << 20) - 1;
constexpr uint64_t kLostRecords = uint64_t{1} << 31;
// A record: 5 bits of kind or length, 27 bits of time; what follows depends on the kind.
constexpr uint32_t kKindMask = 31;
constexpr uint32_t kLongRecord = 0, kPadding = 29, kTimeExtend = 30, kTimeStamp = 31;
constexpr size_t kWord = 4;

}  // namespace

std::optional<TraceFormat> TraceFormat::Parse(std::string_view text, std::span<const char *const> wanted) {
  TraceFormat format;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.starts_with("ID:")) NumberBehind(line, "ID:", &format.id_);
    const size_t declaration = line.find("field:");
    if (declaration == std::string_view::npos) continue;
    const std::string_view name = line.substr(0, line.find(';'));
    Field field;
    if (!NumberBehind(line, "offset:", &field.offset) || !NumberBehind(line, "size:", &field.size)) continue;
    format.fields_[std::string(name.substr(name.rfind(' ') + 1))] = field;
  }
  const bool isWhole = std::all_of(wanted.begin(), wanted.end(), [&](const char *name) {
    const auto found = format.fields_.find(name);
    return found != format.fields_.end() && found->second.size <= sizeof(uint64_t);
  });
  if (format.id_ == 0 || !isWhole) return std::nullopt;
  return format;
}

uint64_t TraceFormat::Read(std::span<const std::byte> record, const std::string &field) const {
  const auto found = fields_.find(field);
  if (found == fields_.end()) return 0;
  const auto [offset, size] = found->second;
  uint64_t value = 0;
  if (size <= sizeof value && offset <= record.size() && size <= record.size() - offset)
    std::memcpy(&value, record.data() + offset, size);
  return value;
}

uint32_t TraceRecordId(std::span<const std::byte> record) {
  return Load<uint16_t>(record);
}

bool ForEachTraceRecord(std::span<const std::byte> page, const std::function<void(std::span<const std::byte>)> &take) {
  if (page.size() < kRecordsAt) return true;
  const auto commit = Load<uint64_t>(page.subspan(kCommitAt));
  std::span<const std::byte> rest = page.subspan(kRecordsAt);
  rest = rest.first(std::min<size_t>(rest.size(), commit & kCommitMask));
  while (rest.size() >= kWord) {
    const uint32_t head = Load<uint32_t>(rest), kind = head & kKindMask;
    rest = rest.subspan(kWord);
    // The word behind the head; a length there counts itself.
    const size_t counted = std::max<size_t>(Load<uint32_t>(rest), kWord);
    size_t skip = kWord, length = 0;
    if (kind == kLongRecord) {
      length = counted;
    } else if (kind == kPadding) {
      // Without a time it reaches to the end of the page.
      skip = (head & ~kKindMask) == 0 ? rest.size() : counted;
    } else if (kind != kTimeExtend && kind != kTimeStamp) {
      skip = 0;
      length = kind * kWord;
    }
    if (length > rest.size() || skip > rest.size()) break;
    if (length > skip) take(rest.subspan(skip, length - skip));
    rest = rest.subspan(std::max(length, skip));
  }
  return (commit & kLostRecords) == 0;
}

}  // namespace rynlinuxd
