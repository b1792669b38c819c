// Writes records for the journal: a field is "NAME=VALUE" and a line end, or, when the value has line ends of its own,
// NAME, a line end, the value's length as 64 bits, the value and a line end. Any thread; no state but the socket's.
#include "hosted/log/journal.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>

#include "base/immortal.h"
#include "hosted/log/journalDatagram.h"
#include "hosted/paths.h"

namespace hosted {
namespace {

constexpr size_t kFieldName = 64;  // the longest that the journal takes

LogSocket &Socket() {
  static base::Immortal<LogSocket> socket(kJournalSocket);
  return *socket;
}

/// A record as parts of memory, which the caller keeps. Parameters that do not fit are left out.
class Fields {
 public:
  void Add(std::string_view text) {
    if (count_ == parts_.size()) return;
    parts_[count_++] = {const_cast<char *>(text.data()), text.size()};  // only read
  }

  /// Add a field with any value; `name` and `*size` must stay until the record is sent.
  void AddField(std::string_view name, std::string_view value, uint64_t *size) {
    if (parts_.size() - count_ < kPartsOfField) return;
    const bool binary = value.find('\n') != std::string_view::npos;
    *size = value.size();
    Add(name);
    Add(binary ? "\n" : "=");
    if (binary) Add({reinterpret_cast<const char *>(size), sizeof *size});
    Add(value);
    Add("\n");
  }

  static constexpr size_t kPartsOfField = 5;
  iovec *Parts() { return parts_.data(); }
  size_t Count() const { return count_; }

 private:
  std::array<iovec, 64> parts_{};
  size_t count_ = 0;
};

/// Write the name of a parameter's field. Its size.
size_t MakeFieldName(const char *sdId, const char *name, char *out) {
  const int size = std::snprintf(out, kFieldName + 1, "%s_%s", sdId, name);
  const size_t used = std::min(static_cast<size_t>(std::max(size, 0)), kFieldName);
  for (size_t i = 0; i < used; ++i) {
    char &c = out[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    const bool digit = c >= '0' && c <= '9';
    // A name begins with a letter: those that begin with '_' are the journal's own.
    if (!(c >= 'A' && c <= 'Z') && !((digit || c == '_') && i > 0)) c = i > 0 ? '_' : 'X';
  }
  return used;
}

/// When the journal was last found missing; 0 when it was there. A host without one pays a look a second for it.
std::atomic<int64_t> missingSince{0};

}  // namespace

bool JournalIsMissing() {
  const int64_t since = missingSince.load(std::memory_order_relaxed);
  return since != 0 && MonotonicNanoseconds() - since < 1'000'000'000;
}

SendResult SendToJournal(const LogHeader &header, std::string_view message, bool lookAgain) {
  if (!lookAgain && JournalIsMissing()) return SendResult::kNoListener;
  const auto isEmpty = [](const char *text) { return text == nullptr || *text == '\0'; };
  std::array<char, 320> standard;
  const int standardSize = std::snprintf(
      standard.data(), standard.size(), "PRIORITY=%d\nSYSLOG_FACILITY=%d\nSYSLOG_PID=%d\nSYSLOG_IDENTIFIER=%.200s\n",
      header.priority & 7, header.priority >> 3, getpid(), isEmpty(header.appName) ? "rynd" : header.appName);
  Fields fields;
  fields.Add({standard.data(), static_cast<size_t>(standardSize)});
  uint64_t messageSize = 0;
  fields.AddField("MESSAGE", message, &messageSize);
  constexpr size_t kMaxParams = 8;
  std::array<std::array<char, kFieldName + 1>, kMaxParams> names;
  std::array<uint64_t, kMaxParams> sizes;
  const HykSyslogParam *param = header.sdId == nullptr ? nullptr : header.params;
  for (size_t i = 0; param != nullptr && !isEmpty(param->name) && i < kMaxParams; ++param, ++i) {
    const size_t used = MakeFieldName(header.sdId, param->name, names[i].data());
    fields.AddField({names[i].data(), used}, param->value == nullptr ? "" : param->value, &sizes[i]);
  }
  const SendResult result = SendJournalDatagram(&Socket(), fields.Parts(), fields.Count());
  if (result == SendResult::kNoListener) {
    missingSince.store(MonotonicNanoseconds(), std::memory_order_relaxed);
  } else if (missingSince.load(std::memory_order_relaxed) != 0) {
    missingSince.store(0, std::memory_order_relaxed);
  }
  return result;
}

}  // namespace hosted
