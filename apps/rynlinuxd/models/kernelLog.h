// Lines of the kernel's log that are facts. Stateless: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rynlinuxd {

/// A program that the kernel killed to get memory.
struct OomKill {
  int32_t process = 0;
  std::string name{};
  bool isOfGroup = false;  ///< its group's memory ran out, not the host's
};

/// Read one record of /dev/kmsg. Nothing but for the kernel's own word that it killed a program: what programs write
/// there has another facility.
std::optional<OomKill> ParseOomKill(std::string_view record);

}  // namespace rynlinuxd
