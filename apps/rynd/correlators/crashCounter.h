// How often each application has crashed since the daemon started. Told the time; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace rynd {

/// The crashes of one application.
struct CrashRecord {
  int64_t firstSeenS;  ///< wall-clock seconds
  int64_t lastSeenS;
  int32_t count;
};

class CrashCounter {
 public:
  /// More names than any host has programs. Whoever crashes programs under ever new names gains nothing: the name that
  /// has been quiet for longest is forgotten for a new one.
  static constexpr size_t kMaxNames = 16'384;

  /// Count a crash of `name` at `nowS`; its crashes so far. A failure to allocate throws and changes nothing.
  int32_t Count(std::string_view name, int64_t nowS);
  size_t Names() const { return records_.size(); }

 private:
  void ForgetQuietest();

  std::map<std::string, CrashRecord, std::less<>> records_;
};

}  // namespace rynd
