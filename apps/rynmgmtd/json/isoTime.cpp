// Times as programs read them. Stateless: any thread.
#include <array>
#include <cstdio>
#include <ctime>

#include "mgmtd/json/json.h"

namespace mgmtd {

std::string IsoTime(int64_t microseconds) {
  constexpr int64_t kSecondUs = 1'000'000;
  int64_t fraction = microseconds % kSecondUs;
  if (fraction < 0) fraction += kSecondUs;
  const time_t seconds = static_cast<time_t>((microseconds - fraction) / kSecondUs);
  tm parts{};
  std::array<char, 40> date{}, whole{};
  if (gmtime_r(&seconds, &parts) == nullptr || strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
    return "1970-01-01T00:00:00.000000Z";
  }
  std::snprintf(whole.data(), whole.size(), "%.20s.%06dZ", date.data(), static_cast<int>(fraction));
  return whole.data();
}

}  // namespace mgmtd
