// One argument inside a raw record, read where it lies. Stateless: any thread.
#include "hosted/records/rawArgument.h"

#include <cstring>

#include "hosted/records/littleEndian.h"

namespace hosted {
namespace {

/// The integer of `width` bytes at `bytes`, sign-extended as T is signed.
template <typename T8, typename T16, typename T32, typename T64>
uint64_t Extend(const std::byte *bytes, uint8_t width) {
  switch (width) {
    case 1:
      return static_cast<uint64_t>(static_cast<T64>(LoadLittle<T8>(bytes)));
    case 2:
      return static_cast<uint64_t>(static_cast<T64>(LoadLittle<T16>(bytes)));
    case 4:
      return static_cast<uint64_t>(static_cast<T64>(LoadLittle<T32>(bytes)));
    default:
      return LoadLittle<uint64_t>(bytes);
  }
}

const char *ParseInteger(const std::byte *payload, uint32_t length, RawArgumentView *view) {
  const uint8_t width = view->width;
  if (width != 1 && width != 2 && width != 4 && width != 8) return "an integer's width is not 1, 2, 4 or 8";
  if (length != width) return "an integer's payload is not of its width";
  view->bits = view->kind == ArgumentKind::kSigned ? Extend<int8_t, int16_t, int32_t, int64_t>(payload, width)
                                                   : Extend<uint8_t, uint16_t, uint32_t, uint64_t>(payload, width);
  return nullptr;
}

const char *ParseString(const std::byte *payload, uint32_t length, RawArgumentView *view) {
  if (view->width != 0) return "a string has a width";
  if (length == 0) return "a string has no NUL";
  const void *nul = std::memchr(payload, 0, length);
  if (nul == nullptr) return "a string has no NUL";
  if (nul != payload + length - 1) return "a string has a NUL before its end";
  view->text = {reinterpret_cast<const char *>(payload), length - 1};
  return nullptr;
}

}  // namespace

const char *ParseRawArgument(const std::byte *bytes, size_t room, RawArgumentView *view) {
  if (room < kArgumentHeaderSize) return "the argument area ends inside of an argument";
  const auto kind = LoadLittle<uint8_t>(bytes);
  const auto length = LoadLittle<uint32_t>(bytes + 4);
  if (LoadLittle<uint16_t>(bytes + 2) != 0) return "an argument's reserved bytes are not zero";
  if (length > room - kArgumentHeaderSize) return "an argument's payload reaches beyond the record";
  *view = {ArgumentKind{kind}, LoadLittle<uint8_t>(bytes + 1), 0, {}, kArgumentHeaderSize + length};
  switch (view->kind) {
    case ArgumentKind::kSigned:
    case ArgumentKind::kUnsigned:
      return ParseInteger(bytes + kArgumentHeaderSize, length, view);
    case ArgumentKind::kString:
      return ParseString(bytes + kArgumentHeaderSize, length, view);
    case ArgumentKind::kNullString:
      return view->width != 0 || length != 0 ? "a null string has a width or a payload" : nullptr;
  }
  return "an argument's kind is unknown";
}

RawHeader LoadRawHeader(const std::byte *bytes) {
  return {LoadLittle<uint64_t>(bytes),      LoadLittle<uint64_t>(bytes + 8),  LoadLittle<uint32_t>(bytes + 16),
          LoadLittle<uint32_t>(bytes + 20), LoadLittle<uint32_t>(bytes + 24), LoadLittle<uint32_t>(bytes + 28)};
}

}  // namespace hosted
