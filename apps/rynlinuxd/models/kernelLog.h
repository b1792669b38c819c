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

/// An address that another host was found to have.
struct DuplicateLine {
  std::string link{};
  std::string address{};  ///< of IPv6, as the kernel writes it
  std::string owner{};    ///< hardware address of who has it
};

/// Read one record of /dev/kmsg; nothing but for the kernel's own word of that.
std::optional<DuplicateLine> ParseDuplicateLine(std::string_view record);

}  // namespace rynlinuxd
