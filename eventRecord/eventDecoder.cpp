// Reads event records field by field, clipped to the bytes that there are. Stateless: any thread.
#include "eventRecord/eventDecoder.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "catalog/catalog.h"
#include "post/eventRecord.h"
#include "text/escape.h"

namespace eventrecord {
namespace {

constexpr size_t kSequenceOffset = 8;
constexpr size_t kReservedOffset = rynd::kEventUuidOffset + rynd::kEventUuidSize;
constexpr size_t kTrailerSize = 4;  ///< zero bytes behind the arguments, counted in the total
static_assert(kReservedOffset + 2 == rynd::kEventTotalLengthOffset);
static_assert(rynd::kEventNameOffset + kTrailerSize == rynd::kEventFixedLength);

/// The bytes of one record, clipped at every access.
class Reader {
 public:
  Reader(const std::byte *bytes, size_t length) : bytes_(bytes), length_(length) {}

  size_t Length() const { return length_; }
  const std::byte *At(size_t offset) const { return bytes_ + std::min(offset, length_); }
  /// How many of `count` bytes from `offset` there are.
  size_t Available(size_t offset, size_t count) const { return std::min(count, length_ - std::min(offset, length_)); }
  std::string_view Text(size_t offset, size_t count) const {
    return {reinterpret_cast<const char *>(At(offset)), Available(offset, count)};
  }
  /// The little-endian number at `offset`; 0 when it is not all there.
  template <typename T>
  T Number(size_t offset) const {
    T value = 0;
    if (Available(offset, sizeof value) == sizeof value) std::memcpy(&value, At(offset), sizeof value);
    return value;
  }
  bool AllZero(size_t offset, size_t count) const {
    return Text(offset, count).find_first_not_of('\0') == std::string_view::npos;
  }

 private:
  const std::byte *bytes_;
  size_t length_;
};

/// `text` up to its first NUL.
std::string_view UpToNul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

std::optional<rynd::Category> CategoryOf(std::string_view name) {
  for (const rynd::Category category : {rynd::kProblem, rynd::kAudit, rynd::kClear}) {
    if (name.starts_with(rynd::EventNamespace(category))) return category;
  }
  return std::nullopt;
}

void DecodeName(const Reader &record, size_t nameLength, DecodedEvent *event) {
  if (nameLength == 0 || nameLength > rynd::kMaxEventNameLength) {
    event->problems.push_back("name length " + std::to_string(nameLength) + " is not 1 to 129");
  }
  const std::string_view room = record.Text(rynd::kEventNameOffset, std::min(nameLength, rynd::kMaxEventNameLength));
  event->name = UpToNul(room);
  event->category = CategoryOf(event->name);
  if (event->name.size() == room.size()) {
    if (!room.empty() && room.size() == nameLength) event->problems.emplace_back("name is not terminated");
  } else if (event->name.size() + 1 != nameLength) {
    event->problems.emplace_back("name ends before its length");
  }
}

/// Check the frame against what was read. Returns the size of the argument area as far as it is there.
size_t CheckFrame(const Reader &record, size_t total, size_t nameLength, DecodedEvent *event) {
  const size_t area = rynd::kEventNameOffset + nameLength;
  if (!record.AllZero(kReservedOffset, rynd::kEventTotalLengthOffset - kReservedOffset)) {
    event->problems.emplace_back("reserved bytes 54 and 55 are not zero");
  }
  if (total < area + kTrailerSize) {
    event->problems.push_back("length " + std::to_string(total) + " is shorter than the record's fixed parts");
  } else if (total > record.Length()) {
    event->problems.push_back("truncated: " + std::to_string(record.Length()) + " of " + std::to_string(total) +
                              " bytes");
  } else if (!record.AllZero(total - kTrailerSize, record.Length())) {
    event->problems.emplace_back("bytes behind the arguments are not zero");
  }
  const size_t end = std::max(total, area + kTrailerSize) - kTrailerSize;
  return record.Available(area, end - area);
}

void DecodeArguments(const std::byte *area, size_t length, uint32_t count, DecodedEvent *event) {
  event->arguments = hosted::DecodeEventArguments(area, length, count);
  if (event->arguments.size() < count) {
    event->problems.push_back("argument count " + std::to_string(count) + " is too large: there is room for " +
                              std::to_string(event->arguments.size()));
  }
  for (size_t i = 0; i < event->arguments.size(); ++i) {
    if (event->arguments[i].sound) continue;
    event->problems.push_back("argument " + std::to_string(i + 1) + " is damaged or outside of the record");
  }
}

std::string ArgumentText(const hosted::EventArgument &argument) {
  if (argument.kind == MsgFmtKind::kSigned) return std::to_string(static_cast<int64_t>(argument.bits));
  if (argument.kind == MsgFmtKind::kUnsigned) return std::to_string(argument.bits);
  if (argument.kind == MsgFmtKind::kNullString) return argument.sound ? "null" : "?";
  std::string quoted;
  for (const char c : argument.text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return '"' + text::EscapeForTerminal(quoted) + '"';
}

}  // namespace

DecodedEvent DecodeEvent(const std::byte *bytes, size_t length) {
  DecodedEvent event;
  const Reader record(bytes, length);
  event.microseconds = record.Number<uint64_t>(0);
  event.sequence = record.Number<uint64_t>(kSequenceOffset);
  event.hostUuid = UpToNul(record.Text(rynd::kEventUuidOffset, rynd::kEventUuidSize));
  if (length < rynd::kEventNameOffset) {
    event.problems.push_back("truncated: " + std::to_string(length) + " bytes, less than the fixed 68");
    return event;
  }

  const size_t nameLength = record.Number<uint32_t>(rynd::kEventNameLengthOffset);
  const uint32_t count = record.Number<uint32_t>(rynd::kEventArgumentCountOffset);
  DecodeName(record, nameLength, &event);
  const size_t areaLength =
      CheckFrame(record, record.Number<uint32_t>(rynd::kEventTotalLengthOffset), nameLength, &event);
  const std::byte *area = record.At(rynd::kEventNameOffset + nameLength);
  DecodeArguments(area, areaLength, count, &event);

  const catalog::Event *entry = catalog::FindEvent(event.name);
  if (entry == nullptr) {
    event.problems.emplace_back("name is not in the catalogue");
    event.text = ArgumentList(event.arguments);
  } else if (!hosted::RenderArguments(entry->message.c_str(), event.arguments, &event.text)) {
    event.problems.emplace_back("arguments do not suit the message");
  }
  return event;
}

std::string ArgumentList(const std::vector<hosted::EventArgument> &arguments) {
  std::string list;
  for (const hosted::EventArgument &argument : arguments) {
    if (!list.empty()) list += ", ";
    list += ArgumentText(argument);
  }
  return "(" + list + ")";
}

}  // namespace eventrecord
