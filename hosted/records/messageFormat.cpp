// Serialises printf arguments for another process and renders them. Stateless: any thread.
#include "platform/messageFormat.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/records/eventArguments.h"
#include "hosted/records/littleEndian.h"
#include "hosted/records/printfWalk.h"

namespace hosted {
namespace {

/// Count the arguments of `format`. 0, or EINVAL for a conversion that a message may not hold.
int CountArguments(const char *format, uint32_t *count) {
  std::string_view literal;
  Conversion conversion;
  *count = 0;
  while (NextConversion(&format, &literal, &conversion)) {
    if (conversion.letter == '%') continue;
    if (!IsMessageConversion(conversion)) return EINVAL;
    *count += 1 + (conversion.width == Conversion::kStar) + (conversion.precision == Conversion::kStar);
  }
  return 0;
}

/// Writes descriptors and, behind them, the bytes of the strings. The area has room for all descriptors.
class Serializer {
 public:
  Serializer(std::byte *area, size_t room, uint32_t count, va_list arguments)
      : area_(area), room_(room), used_(count * sizeof(MsgFmtArg)) {
    va_copy(arguments_, arguments);
  }
  ~Serializer() { va_end(arguments_); }
  Serializer(const Serializer &) = delete;
  Serializer &operator=(const Serializer &) = delete;

  /// Serialise what `conversion` takes. 0 or ENOSPC.
  int Add(const Conversion &conversion) {
    if (conversion.width == Conversion::kStar) PutSigned(va_arg(arguments_, int), 4);
    int precision = conversion.precision;
    if (precision == Conversion::kStar) {
      precision = va_arg(arguments_, int);
      PutSigned(precision, 4);
    }
    switch (conversion.letter) {
      case 's':
        return AddString(va_arg(arguments_, const char *), precision);
      case 'p':
        Put({MsgFmtKind::kUnsigned, 8, reinterpret_cast<uintptr_t>(va_arg(arguments_, const void *))});
        return 0;
      case 'c':
        PutSigned(va_arg(arguments_, int), 4);
        return 0;
      default:
        AddInteger(conversion);
        return 0;
    }
  }

  size_t Used() const { return used_; }

 private:
  /// Write the next descriptor.
  void Put(const MsgFmtArg &descriptor) { StoreLittle(area_ + sizeof(MsgFmtArg) * next_++, descriptor); }
  void PutSigned(int64_t value, uint32_t width) { Put({MsgFmtKind::kSigned, width, static_cast<uint64_t>(value)}); }

  /// Every integer comes as its promoted type and is kept as the value that printf would show.
  void AddInteger(const Conversion &conversion) {
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    switch (conversion.length) {
      case Conversion::Length::kLong: {
        const auto value = va_arg(arguments_, uint64_t);
        return Put({isSigned ? MsgFmtKind::kSigned : MsgFmtKind::kUnsigned, 8, value});
      }
      case Conversion::Length::kInt: {
        const auto value = va_arg(arguments_, unsigned);
        return isSigned ? PutSigned(static_cast<int>(value), 4) : Put({MsgFmtKind::kUnsigned, 4, value});
      }
      // The shorter ones come as int and count as what they are cut to.
      case Conversion::Length::kShort: {
        const auto value = static_cast<uint16_t>(va_arg(arguments_, int));
        return isSigned ? PutSigned(static_cast<int16_t>(value), 4) : Put({MsgFmtKind::kUnsigned, 4, value});
      }
      case Conversion::Length::kChar: {
        const auto value = static_cast<uint8_t>(va_arg(arguments_, int));
        return isSigned ? PutSigned(static_cast<int8_t>(value), 4) : Put({MsgFmtKind::kUnsigned, 4, value});
      }
    }
  }

  int AddString(const char *text, int precision) {
    if (text == nullptr) {
      Put({MsgFmtKind::kNullString, 0, 0});
      return 0;
    }
    // With a precision the text may lack its NUL.
    const size_t length = precision < 0 ? std::strlen(text) : strnlen(text, static_cast<size_t>(precision));
    if (length >= room_ - used_ || length >= UINT32_MAX) return ENOSPC;
    std::byte *copy = area_ + used_;
    std::memcpy(copy, text, length);
    copy[length] = std::byte{0};
    used_ += length + 1;
    Put({MsgFmtKind::kString, static_cast<uint32_t>(length + 1), reinterpret_cast<uintptr_t>(copy)});
    return 0;
  }

  std::byte *area_;
  size_t room_;
  size_t used_;
  uint32_t next_ = 0;
  va_list arguments_;
};

/// The arguments of an area that MsgFmt_Serialize has just written: its strings are still addresses.
void DecodePointers(const std::byte *area, std::span<EventArgument> arguments) {
  for (uint32_t i = 0; i < arguments.size(); ++i) {
    const MsgFmtArg descriptor = MsgFmt_GetArg(area, i);
    arguments[i] = {descriptor.kind, descriptor.value, descriptor.size == 4 ? 4U : 8U, {}, true};
    if (descriptor.kind == MsgFmtKind::kString) {
      arguments[i].text = {reinterpret_cast<const char *>(descriptor.value), size_t{descriptor.size} - 1};
    }
  }
}

}  // namespace
}  // namespace hosted

int MsgFmt_Serialize(std::byte *area, size_t room, const char *format, va_list arguments, size_t *used,
                     uint32_t *count) {
  if (const int error = hosted::CountArguments(format, count); error != 0) return error;
  if (*count > room / sizeof(MsgFmtArg)) return ENOSPC;
  hosted::Serializer out(area, room, *count, arguments);
  std::string_view literal;
  hosted::Conversion conversion;
  while (hosted::NextConversion(&format, &literal, &conversion)) {
    if (conversion.letter == '%') continue;
    if (const int error = out.Add(conversion); error != 0) return error;
  }
  *used = out.Used();
  return 0;
}

MsgFmtArg MsgFmt_GetArg(const std::byte *area, uint32_t index) {
  return hosted::LoadLittle<MsgFmtArg>(area + size_t{index} * sizeof(MsgFmtArg));
}

char *MsgFmt_Format(const char *format, const std::byte *area, uint32_t count) try {
  std::array<hosted::EventArgument, 10> few;
  std::vector<hosted::EventArgument> many(count > few.size() ? count : 0);
  const std::span arguments(count > few.size() ? many.data() : few.data(), count);
  hosted::DecodePointers(area, arguments);
  std::string text;
  constexpr size_t kUsual = 500;  // of room, so that it is made once
  text.reserve(kUsual);
  return hosted::RenderArguments(format, arguments, &text) ? strdup(text.c_str()) : nullptr;
} catch (const std::bad_alloc &) {
  return nullptr;
}

void MsgFmt_PointersToOffsets(std::byte *area, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    MsgFmtArg descriptor = MsgFmt_GetArg(area, i);
    if (descriptor.kind != MsgFmtKind::kString) continue;
    descriptor.value -= reinterpret_cast<uintptr_t>(area);
    hosted::StoreLittle(area + size_t{i} * sizeof(MsgFmtArg), descriptor);
  }
}
