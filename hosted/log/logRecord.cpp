// The text of one RFC 5424 record. Any thread.
#include "hosted/log/logRecord.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "hosted/log/logTime.h"

namespace hosted {
namespace {

constexpr size_t kNameRoom = 80;         // in front of a record, for the name of a line for standard error
constexpr size_t kHeaderRoom = 1200;     // where a header must end
constexpr size_t kValueLimit = 200;      // a longer parameter value is cut
constexpr size_t kLongest = 256 * 1024;  // no socket takes a longer record
constexpr std::string_view kCutMark = " (cut)";

/// Characters of a parameter's value that cannot stay as they are, or not alone.
constexpr auto kTroublesome = [] {
  std::array<bool, 256> characters{};
  for (const char c : {'"', '\\', ']', '\n', '\r'}) characters[static_cast<unsigned char>(c)] = true;
  return characters;
}();

/// Appends to a buffer and stops at its end.
class Appender {
 public:
  Appender(char *at, char *end) : at_(at), end_(end) {}
  size_t Room() const { return static_cast<size_t>(end_ - at_); }
  char *At() const { return at_; }
  void Add(std::string_view text) { at_ += text.copy(at_, Room()); }
  /// A parameter's value, escaped as RFC 5424 says; line ends would break the framing.
  void AddValue(std::string_view value) {
    value = value.substr(0, kValueLimit);
    if (std::ranges::none_of(value, [](unsigned char c) { return kTroublesome[c]; })) return Add(value);
    for (const char c : value) {
      const bool isLineEnd = c == '\n' || c == '\r';
      if (kTroublesome[static_cast<unsigned char>(c)] && !isLineEnd) Add("\\");
      Add(isLineEnd ? std::string_view(" ") : std::string_view(&c, 1));
    }
  }

 private:
  char *at_;
  char *end_;
};

/// What every record of the process says of its sender, read once.
struct Identity {
  std::array<char, 256> host{};
  std::array<char, 16> pid{};
  std::array<char, 300> usual{};  ///< what follows the time when a header says nothing of its own
  size_t usualSize = 0;
};

const Identity &OwnIdentity() {
  static const Identity identity = [] {
    Identity own;
    if (gethostname(own.host.data(), own.host.size() - 1) != 0 || own.host[0] == '\0') own.host[0] = '-';
    // A header field has no blanks and nothing that can't be printed.
    for (char &c : own.host) {
      if (c != '\0' && (c < '!' || c > '~')) c = '?';
    }
    std::snprintf(own.pid.data(), own.pid.size(), "%d", getpid());
    own.usualSize = static_cast<size_t>(
        std::snprintf(own.usual.data(), own.usual.size(), " %.255s rynd %s - ", own.host.data(), own.pid.data()));
    return own;
  }();
  return identity;
}

bool IsEmpty(const char *text) {
  return text == nullptr || *text == '\0';
}

/// `text`, or `standard` in place of nothing, within what a header has room for.
std::string_view OrDefault(const char *text, const char *standard) {
  return std::string_view(IsEmpty(text) ? standard : text).substr(0, kValueLimit);
}

void AddStructuredData(const char *sdId, const HykSyslogParam *param, Appender *out) {
  if (sdId == nullptr) return out->Add("-");
  out->Add("[");
  out->Add(OrDefault(sdId, "-"));
  // A value may double in size by its escapes; an element is never left open.
  for (; param != nullptr && param->name != nullptr && *param->name != '\0'; ++param) {
    if (out->Room() < 3 * kValueLimit + 8) break;
    out->Add(" ");
    out->Add(OrDefault(param->name, "-"));
    out->Add("=\"");
    out->AddValue(param->value == nullptr ? "" : param->value);
    out->Add("\"");
  }
  out->Add("]");
}

/// Host, program, process and kind of message, with the blanks around them.
void AddSender(const LogHeader &header, Appender *out) {
  const Identity &own = OwnIdentity();
  if (IsEmpty(header.hostName) && IsEmpty(header.appName) && IsEmpty(header.messageId))
    return out->Add({own.usual.data(), own.usualSize});
  out->Add(" ");
  out->Add(OrDefault(header.hostName, own.host.data()));
  out->Add(" ");
  out->Add(OrDefault(header.appName, "rynd"));
  out->Add(" ");
  out->Add(own.pid.data());
  out->Add(" ");
  out->Add(OrDefault(header.messageId, "-"));
  out->Add(" ");
}

/// Everything in front of the message, its blank included.
void AddHeader(const LogHeader &header, Appender *out) {
  std::array<char, 12> priority;
  const auto end = std::to_chars(priority.begin(), priority.end(), header.priority).ptr;
  out->Add("<");
  out->Add({priority.data(), static_cast<size_t>(end - priority.data())});
  out->Add(">1 ");
  std::array<char, kLogTimeSize> time;
  FormatLogTime(time.data());
  out->Add({time.data(), time.size()});
  AddSender(header, out);
  AddStructuredData(header.sdId, header.params, out);
  out->Add(" ");
}

/// True when the conversions of `format` are "%s" and "%lu" alone, as those of the lines of every observation and
/// event.
bool IsPlain(const char *format) {
  while ((format = std::strchr(format, '%')) != nullptr) {
    if (format[1] != 's' && (format[1] != 'l' || format[2] != 'u')) return false;
    ++format;
  }
  return true;
}

/// Write a plain format to `at`, without a NUL. Where it ends, or null when it does not end before `end`, or is not
/// plain. The C library's own formatting takes several times as long, and a storm of observations is mostly this.
[[gnu::format(printf, 1, 0)]] char *FormatPlain(const char *format, va_list arguments, char *at, const char *end) {
  const auto add = [&](std::string_view text) {
    if (text.size() >= static_cast<size_t>(end - at)) return false;
    at += text.copy(at, text.size());
    return true;
  };
  while (true) {
    const char *conversion = std::strchr(format, '%');
    if (conversion == nullptr) return add(format) ? at : nullptr;
    if (!add({format, static_cast<size_t>(conversion - format)})) return nullptr;
    if (conversion[1] == 's') {
      const char *text = va_arg(arguments, const char *);
      if (!add(text == nullptr ? "(null)" : text)) return nullptr;
      format = conversion + 2;
    } else if (conversion[1] != 'l' || conversion[2] != 'u') {
      return nullptr;
    } else {
      std::array<char, 20> digits;
      const auto last = std::to_chars(digits.begin(), digits.end(), va_arg(arguments, unsigned long)).ptr;
      if (!add({digits.data(), static_cast<size_t>(last - digits.data())})) return nullptr;
      format = conversion + 3;
    }
  }
}

/// The length of what FormatPlain writes.
[[gnu::format(printf, 1, 0)]] size_t PlainLength(const char *format, va_list arguments) {
  size_t length = 0;
  for (const char *at = std::strchr(format, '%'); at != nullptr; at = std::strchr(format, '%')) {
    length += static_cast<size_t>(at - format);
    if (at[1] == 's') {
      const char *text = va_arg(arguments, const char *);
      length += std::strlen(text == nullptr ? "(null)" : text);
      format = at + 2;
    } else {
      constexpr size_t kMostDigits = 20;
      static_cast<void>(va_arg(arguments, unsigned long));
      length += kMostDigits;
      format = at + 3;
    }
  }
  return length + std::strlen(format);
}

}  // namespace

LogRecord::~LogRecord() {
  if (data_ != own_.data()) std::free(data_);
}

void LogRecord::Build(const LogHeader &header, const char *format, va_list arguments, std::string_view tail) {
  begin_ = kNameRoom;
  Appender out(data_ + begin_, data_ + kHeaderRoom);
  AddHeader(header, &out);
  message_ = static_cast<size_t>(out.At() - data_);
  tailSize_ = tail.copy(tail_.data(), kTailRoom);
  Format(format, arguments);
  CleanLineEnds();
  AppendTail();
}

/// Make room for a message of `size` bytes, as far as a record may grow and there is memory.
void LogRecord::Grow(size_t size) {
  const size_t larger = std::min(message_ + size + 1 + kSpare, kLongest);
  if (larger <= room_) return;
  char *const heap = static_cast<char *>(std::malloc(larger));
  if (heap == nullptr) return;
  std::memcpy(heap, data_, message_);
  if (data_ != own_.data()) std::free(data_);
  data_ = heap;
  room_ = larger;
}

/// Write a message of a plain format. False when it is none, or does not fit.
bool LogRecord::PutPlain(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  char *const at = data_ + message_;
  const char *const end = FormatPlain(format, again, at, at + Room());
  va_end(again);
  if (end != nullptr) messageEnd_ = static_cast<size_t>(end - data_);
  return end != nullptr;
}

void LogRecord::Format(const char *format, va_list arguments) {
  if (PutPlain(format, arguments)) return;
  va_list again;
  if (IsPlain(format)) {
    va_copy(again, arguments);
    Grow(PlainLength(format, again));
    va_end(again);
    if (PutPlain(format, arguments)) return;
  }
  va_copy(again, arguments);
  const int wanted = std::vsnprintf(data_ + message_, Room(), format, again);
  va_end(again);
  const size_t size = wanted < 0 ? 0 : static_cast<size_t>(wanted);
  if (size >= Room()) {
    Grow(size);
    std::vsnprintf(data_ + message_, Room(), format, arguments);
  }
  messageEnd_ = message_ + std::min(size, Room() - 1);
  if (size >= Room()) CutAt(messageEnd_);
}

void LogRecord::CutAt(size_t end) {
  messageEnd_ = end;
  std::memcpy(data_ + messageEnd_ - kCutMark.size(), kCutMark.data(), kCutMark.size());
}

bool LogRecord::Halve() {
  const size_t keep = (messageEnd_ - message_) / 2;
  if (keep <= kCutMark.size()) return false;
  CutAt(message_ + keep);
  AppendTail();
  return true;
}

void LogRecord::CleanLineEnds() {
  if (messageEnd_ > message_ && data_[messageEnd_ - 1] == '\n') --messageEnd_;
  if (messageEnd_ > message_ && data_[messageEnd_ - 1] == '\r') --messageEnd_;
  for (const char end : {'\n', '\r'}) {
    char *at = data_ + message_;
    char *const stop = data_ + messageEnd_;
    while ((at = static_cast<char *>(std::memchr(at, end, static_cast<size_t>(stop - at)))) != nullptr) *at++ = ' ';
  }
}

void LogRecord::AppendTail() {
  std::memcpy(data_ + messageEnd_, tail_.data(), tailSize_);
  end_ = messageEnd_ + tailSize_;
}

std::string_view LogRecord::MakeLine(std::string_view name) {
  name = name.substr(0, kNameRoom - 2);
  begin_ = message_ - 2 - name.size();
  std::memcpy(data_ + begin_, name.data(), name.size());
  std::memcpy(data_ + message_ - 2, ": ", 2);
  data_[end_++] = '\n';
  return Text();
}

}  // namespace hosted
