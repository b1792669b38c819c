// The kernel's messages about devices (uevents), read from bytes. Stateless: any thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace rynlinuxd {

/// What happened to one device.
struct Uevent {
  std::string action{};  ///< "add", "remove", "change" and others
  std::string path{};    ///< of the device, below /sys, beginning with '/'
  std::map<std::string, std::string> values{};

  /// "" when it is not there.
  const std::string &Value(const std::string &name) const;
  /// The last part of the path.
  std::string Name() const { return path.substr(path.rfind('/') + 1); }
  /// Somebody wrote into the device's file "uevent": nothing has happened to it.
  bool IsSynthetic() const { return values.contains("SYNTH_UUID"); }
};

/// Read one datagram: "ACTION@PATH" and "NAME=VALUE" texts, each ended by a NUL. Nothing for what is another thing,
/// such as udev's own messages.
std::optional<Uevent> ParseUevent(std::span<const std::byte> bytes);

}  // namespace rynlinuxd
