// Reads and renders the serialised arguments of an event, whatever bytes they are. Stateless: any thread.
#include "hosted/records/eventArguments.h"

#include <algorithm>
#include <cstring>

#include "hosted/records/littleEndian.h"
#include "hosted/records/textRender.h"

namespace hosted {
namespace {

/// A string as far as it lies inside of the area, up to its first NUL.
EventArgument DecodeString(const MsgFmtArg &descriptor, const std::byte *area, size_t length) {
  EventArgument argument{MsgFmtKind::kNullString, 0, 8, {}, false};
  if (descriptor.value > length || descriptor.size == 0) return argument;
  const size_t room = std::min<size_t>(descriptor.size, length - descriptor.value);
  if (room == 0) return argument;
  const std::string_view bytes(reinterpret_cast<const char *>(area + descriptor.value), room);
  argument.kind = MsgFmtKind::kString;
  argument.text = bytes.substr(0, bytes.find('\0'));
  argument.sound = argument.text.size() + 1 == descriptor.size;
  return argument;
}

EventArgument DecodeOne(const MsgFmtArg &descriptor, const std::byte *area, size_t length) {
  switch (descriptor.kind) {
    case MsgFmtKind::kSigned:
    case MsgFmtKind::kUnsigned: {
      const bool sound = descriptor.size == 4 || descriptor.size == 8;
      return {descriptor.kind, descriptor.value, descriptor.size == 4 ? 4U : 8U, {}, sound};
    }
    case MsgFmtKind::kString:
      return DecodeString(descriptor, area, length);
    case MsgFmtKind::kNullString:
      return {descriptor.kind, 0, 8, {}, descriptor.size == 0};
  }
  return {MsgFmtKind::kNullString, 0, 8, {}, false};
}

bool IsInteger(const EventArgument &argument) {
  return argument.kind == MsgFmtKind::kSigned || argument.kind == MsgFmtKind::kUnsigned;
}

/// Hands out the arguments in order and renders them one conversion at a time.
class Renderer {
 public:
  Renderer(std::span<const EventArgument> arguments, std::string *out) : arguments_(arguments), out_(out) {}

  void Render(Conversion conversion) {
    conversion.width = Resolve(conversion.width);
    if (conversion.width < Conversion::kNone) {  // a negative width of an argument's
      conversion.left = true;
      conversion.width = -conversion.width;
    }
    conversion.precision = std::max(Resolve(conversion.precision), Conversion::kNone);
    const EventArgument *argument = Next();
    if (argument == nullptr) {
      out_->push_back('?');
    } else if (conversion.letter == 's') {
      RenderText(conversion, *argument);
    } else {
      RenderNumber(conversion, *argument);
    }
  }

  void Refuse() { suited_ = false; }
  /// Whether everything suited the format so far, no argument left over.
  bool Suited() const { return suited_ && next_ == arguments_.size(); }

 private:
  /// The next argument, or null when they are used up.
  const EventArgument *Next() {
    if (next_ == arguments_.size()) {
      suited_ = false;
      return nullptr;
    }
    const EventArgument &argument = arguments_[next_++];
    suited_ = suited_ && argument.sound;
    return &argument;
  }

  /// A width or precision, or the argument that gives it, within what is rendered.
  int Resolve(int size) {
    if (size != Conversion::kStar) return size;
    const EventArgument *argument = Next();
    if (argument == nullptr) return Conversion::kNone;
    if (!IsInteger(*argument)) {
      suited_ = false;
      return Conversion::kNone;
    }
    return static_cast<int>(std::clamp<int64_t>(static_cast<int32_t>(argument->bits), -kLargestField, kLargestField));
  }

  /// A conversion of a text; an integer in its place is shown in decimal.
  void RenderText(const Conversion &conversion, const EventArgument &argument) {
    if (argument.kind == MsgFmtKind::kString) return AppendText(out_, conversion, argument.text);
    Conversion whole = conversion;  // "(null)" is never cut
    whole.precision = Conversion::kNone;
    if (argument.kind == MsgFmtKind::kNullString) return AppendText(out_, whole, argument.sound ? "(null)" : "?");
    suited_ = false;
    whole.letter = argument.kind == MsgFmtKind::kSigned ? 'd' : 'u';
    AppendInteger(out_, whole, argument.bits, argument.bytes);
  }

  /// A conversion of an integer; a text in its place is shown as it is.
  void RenderNumber(const Conversion &conversion, const EventArgument &argument) {
    if (!IsInteger(argument)) {
      suited_ = false;
      RenderText({}, argument);
    } else if (conversion.letter == 'c') {
      AppendCharacter(out_, conversion, static_cast<char>(argument.bits));
    } else {
      AppendInteger(out_, conversion, argument.bits, argument.bytes);
    }
  }

  std::span<const EventArgument> arguments_;
  std::string *out_;
  size_t next_ = 0;
  bool suited_ = true;
};

}  // namespace

std::vector<EventArgument> DecodeEventArguments(const std::byte *area, size_t length, uint32_t count) {
  std::vector<EventArgument> arguments;
  const size_t readable = std::min<size_t>(count, length / sizeof(MsgFmtArg));
  arguments.reserve(readable);
  for (size_t i = 0; i < readable; ++i) {
    arguments.push_back(DecodeOne(LoadLittle<MsgFmtArg>(area + i * sizeof(MsgFmtArg)), area, length));
  }
  return arguments;
}

bool RenderArguments(const char *format, std::span<const EventArgument> arguments, std::string *text) {
  Renderer renderer(arguments, text);
  std::string_view literal;
  Conversion conversion;
  while (NextConversion(&format, &literal, &conversion)) {
    text->append(literal);
    if (conversion.letter == '%') {
      text->push_back('%');
    } else if (IsMessageConversion(conversion)) {
      renderer.Render(conversion);
    } else {
      renderer.Refuse();
      text->push_back('?');
    }
  }
  text->append(literal);
  return renderer.Suited();
}

bool RenderEvent(const char *format, const std::byte *area, size_t length, uint32_t count, std::string *text) {
  text->clear();
  const std::vector<EventArgument> arguments = DecodeEventArguments(area, length, count);
  return RenderArguments(format, arguments, text) && arguments.size() == count;
}

}  // namespace hosted
