// Encodes, checks and decodes raw observation records. Stateless: any thread.
#include "hosted/records/rawRecord.h"

#include <cstring>
#include <utility>

#include "hosted/records/littleEndian.h"
#include "hosted/records/rawArgument.h"

namespace hosted {
namespace {

/// Appends packed fields.
class Writer {
 public:
  template <typename T>
  void Put(T value) {
    Bytes(&value, sizeof value);
  }
  void Bytes(const void *data, size_t size) {
    const auto *bytes = static_cast<const std::byte *>(data);
    out_.insert(out_.end(), bytes, bytes + size);
  }
  /// `text` with its NUL.
  void Text(const std::string &text) { Bytes(text.c_str(), text.size() + 1); }
  std::vector<std::byte> &Out() { return out_; }

 private:
  std::vector<std::byte> out_;
};

/// Append one argument, its header included.
void PutArgument(const RawArgument &argument, Writer *out) {
  const bool integer = argument.kind == ArgumentKind::kSigned || argument.kind == ArgumentKind::kUnsigned;
  const size_t size = integer ? argument.width : argument.kind == ArgumentKind::kString ? argument.text.size() + 1 : 0;
  out->Put(static_cast<uint8_t>(argument.kind));
  out->Put(argument.width);
  out->Put(uint16_t{0});
  out->Put(static_cast<uint32_t>(size));
  // A width above 8 is written as it stands, with zeros behind the integer: senders of bad records are useful too.
  constexpr uint8_t kZeros[UINT8_MAX] = {};
  if (integer) {
    const size_t held = size < sizeof argument.bits ? size : sizeof argument.bits;
    out->Bytes(&argument.bits, held);
    out->Bytes(kZeros, size - held);
  } else if (argument.kind == ArgumentKind::kString) {
    out->Text(argument.text);
  }
}

/// Null when the argument area holds exactly `count` good arguments, else what is wrong.
const char *CheckArguments(const std::byte *area, size_t length, uint32_t count) {
  uint32_t found = 0;
  RawArgumentView view;
  for (size_t at = 0; at < length; at += view.size) {
    if (const char *wrong = ParseRawArgument(area + at, length - at, &view); wrong != nullptr) return wrong;
    ++found;
  }
  return found == count ? nullptr : "the number of arguments is not the header's";
}

}  // namespace

std::vector<std::byte> EncodeRecord(const RawRecord &record) {
  Writer out;
  out.Put(record.sequence);
  out.Put(record.microseconds);
  out.Put(uint32_t{0});  // the total, when it is known
  out.Put(static_cast<uint32_t>(record.arguments.size()));
  out.Put(static_cast<uint32_t>(record.id.size() + 1));
  out.Put(static_cast<uint32_t>(record.message.size() + 1));
  out.Text(record.id);
  out.Text(record.message);
  for (const RawArgument &argument : record.arguments) PutArgument(argument, &out);
  StoreLittle(out.Out().data() + 16, static_cast<uint32_t>(out.Out().size()));
  return std::move(out.Out());
}

const char *CheckRecord(const std::byte *bytes, size_t length) {
  if (length == 0) return "the packet is empty";
  if (length < kRecordHeaderSize) return "shorter than a header";
  const RawHeader header = LoadRawHeader(bytes);
  if (header.total != length) return "the total length is not the packet's";
  const size_t room = length - kRecordHeaderSize;
  if (header.idLength > room) return "the id reaches beyond the record";
  if (header.messageLength > room - header.idLength) return "the message reaches beyond the record";
  if (header.idLength < 2) return "the id is empty";
  // An id that ends before its length would be one id to the daemon and another to whoever goes by the length.
  const std::byte *id = bytes + kRecordHeaderSize;
  if (std::memchr(id, 0, header.idLength) != id + header.idLength - 1) return "the id does not end in its only NUL";
  const size_t fixed = size_t{header.idLength} + header.messageLength;
  return CheckArguments(id + fixed, room - fixed, header.argumentCount);
}

RawRecord DecodeRecord(const std::byte *bytes, size_t length) {
  const RawHeader header = LoadRawHeader(bytes);
  RawRecord record{header.sequence, header.microseconds, {}, {}, {}};
  const auto *text = reinterpret_cast<const char *>(bytes + kRecordHeaderSize);
  record.id.assign(text, header.idLength - 1);
  record.message.assign(text + header.idLength, header.messageLength);
  if (record.message.ends_with('\0')) record.message.pop_back();
  RawArgumentView view;
  for (size_t at = kRecordHeaderSize + header.idLength + header.messageLength; at < length; at += view.size) {
    if (ParseRawArgument(bytes + at, length - at, &view) != nullptr) break;
    record.arguments.push_back({view.kind, view.width, view.bits, std::string(view.text)});
  }
  return record;
}

}  // namespace hosted
