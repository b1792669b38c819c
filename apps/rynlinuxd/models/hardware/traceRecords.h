// The kernel's trace records, read from the pages of its ring buffer by the format that tracefs says they have.
// Stateless: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace rynlinuxd {

/// Where the fields of one kind of record are: the text of its file "format".
class TraceFormat {
 public:
  /// Nothing when `text` is none, or lacks one of the numeric fields `wanted`.
  static std::optional<TraceFormat> Parse(std::string_view text, std::span<const char *const> wanted);
  uint32_t Id() const { return id_; }
  /// A field of `record`, which counts from its first byte; 0 when the record is too short. Not sign-extended.
  uint64_t Read(std::span<const std::byte> record, const std::string &field) const;

 private:
  struct Field {
    size_t offset = 0, size = 0;
  };
  uint32_t id_ = 0;
  std::map<std::string, Field> fields_;
};

/// Which kind of record this is; 0 when it is too short to say.
uint32_t TraceRecordId(std::span<const std::byte> record);

/// Call `take` with each record of a page as "trace_pipe_raw" gives it. False when records were lost in front of it.
bool ForEachTraceRecord(std::span<const std::byte> page, const std::function<void(std::span<const std::byte>)> &take);

}  // namespace rynlinuxd
