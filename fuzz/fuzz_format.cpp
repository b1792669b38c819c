// Arbitrary message formats: what is serialised must render the same from addresses, as the daemon does for its log,
// and from offsets, as whoever receives the event does.
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "hosted/records/eventArguments.h"
#include "platform/messageFormat.h"

namespace {

constexpr size_t kArguments = 8;
constexpr char kText[] = "a text of 25 characters..";

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // hostile formats are the point

int Serialize(std::byte *area, size_t room, size_t *used, uint32_t *count, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int status = MsgFmt_Serialize(area, room, format, arguments, used, count);
  va_end(arguments);
  return status;
}

/// Compare both ways to render `format` when `room` bytes hold its arguments.
void Check(const char *format, size_t room) {
  const auto area = std::make_unique<std::byte[]>(room);  // exactly as long as told, for the address sanitizer
  size_t used = 0;
  uint32_t count = 0;
  // Any conversion may take any of them: each is a pointer to a text, and wide enough.
  if (Serialize(area.get(), room, &used, &count, format, kText, kText, kText, kText, kText, kText, kText, kText) != 0) {
    return;
  }
  if (used > room || count > kArguments) abort();
  const std::unique_ptr<char, decltype(&free)> rendered(MsgFmt_Format(format, area.get(), count), free);
  MsgFmt_PointersToOffsets(area.get(), count);
  std::string received;
  const bool suits = hosted::RenderEvent(format, area.get(), used, count, &received);
  if (suits != (rendered != nullptr) || (suits && received.c_str() != std::string(rendered.get()))) abort();
}
#pragma GCC diagnostic pop

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const std::string format(reinterpret_cast<const char *>(data + 1), size - 1);
  // Each '%' takes an argument, and each '*' one more.
  const auto arguments = std::count(format.begin(), format.end(), '%') + std::count(format.begin(), format.end(), '*');
  if (static_cast<size_t>(arguments) <= kArguments) Check(format.c_str(), size_t{data[0]} * 2);
  return 0;
}
