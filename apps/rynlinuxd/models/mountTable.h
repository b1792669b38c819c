// The mounts of a host, as /proc/self/mountinfo lists them. Stateless: any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rynlinuxd {

/// How a file system is looked at.
enum class MountKind {
  kIgnored,  ///< no storage of its own, or never to be written
  kDisk,
  kRamdisk,
  kRemote,  ///< somebody else's answer is waited for
};

struct Mount {
  std::string device{};  ///< "8:1"
  std::string point{};   ///< as programs name it
  std::string type{};
  std::string source{};
  MountKind kind = MountKind::kIgnored;
  bool isReadOnly = false;   ///< as it was mounted
  bool isEmergency = false;  ///< the file system has shut itself off from writing
};

/// Every mount in the list's order, of each device the first one that shows all of it; those that a later mount hides
/// are left out where their points are the same.
std::vector<Mount> ParseMounts(std::string_view mountInfo);

/// `text` with the octal escapes of mount lists undone.
std::string UnescapeMount(std::string_view text);

}  // namespace rynlinuxd
