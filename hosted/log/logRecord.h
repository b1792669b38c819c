// The text of one RFC 5424 record, built in a buffer of the caller's. Any thread; allocates for long messages only.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string_view>

#include "platform/system.h"

namespace hosted {

/// What stands in front of a record's message. Null or empty texts mean the defaults.
struct LogHeader {
  int priority;  ///< facility (already shifted, as LOG_DAEMON is) and severity
  const char *hostName;
  const char *appName;
  const char *messageId;
  const char *sdId;  ///< null for no structured data
  const HykSyslogParam *params;
};

/// Builds a record, and the line for standard error that stands for it. Usual records fit its own buffer.
class LogRecord {
 public:
  LogRecord() = default;
  ~LogRecord();
  LogRecord(const LogRecord &) = delete;
  LogRecord &operator=(const LogRecord &) = delete;

  /// Write the header and the message. `tail` (at most kTailRoom bytes) follows the message.
  [[gnu::format(printf, 3, 0)]] void Build(const LogHeader &header, const char *format, va_list arguments,
                                           std::string_view tail);
  /// Cut the message so that the record has about half its size, and say so in it. False when it is short already.
  bool Halve();
  /// The record.
  std::string_view Text() const { return {data_ + begin_, end_ - begin_}; }
  /// Its message, with the tail.
  std::string_view Message() const { return {data_ + message_, end_ - message_}; }
  /// Turn the record into the line "NAME: MESSAGE\\n"; the record itself is gone then.
  std::string_view MakeLine(std::string_view name);

  static constexpr size_t kTailRoom = 64;

 private:
  [[gnu::format(printf, 2, 0)]] void Format(const char *format, va_list arguments);
  [[gnu::format(printf, 2, 0)]] bool PutPlain(const char *format, va_list arguments);
  void Grow(size_t size);
  /// For a message and a NUL.
  size_t Room() const { return room_ - kSpare - message_; }
  void CutAt(size_t end);
  void AppendTail();
  void CleanLineEnds();

  static constexpr size_t kRoom = 2048;
  static constexpr size_t kSpare = kTailRoom + 2;  // the tail, a line's end, a NUL
  std::array<char, kRoom> own_;                    // not initialised: most of it is never used
  char *data_ = own_.data();
  size_t room_ = kRoom;
  size_t begin_ = 0;       // of the record
  size_t message_ = 0;     // of its message
  size_t messageEnd_ = 0;  // behind the message, where the tail begins
  size_t end_ = 0;
  std::array<char, kTailRoom> tail_;
  size_t tailSize_ = 0;
};

}  // namespace hosted
