// For tests of what is read from bytes: as they were recorded, and changed.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rynlinuxd {

using Bytes = std::vector<std::byte>;

inline Bytes FromHex(std::string_view hex) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::byte>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return bytes;
}

/// Hand `read` the bytes cut short anywhere, and with each of them changed: for the sanitizers.
template <typename Read>
void ReadDamaged(std::span<const std::byte> bytes, const Read &read) {
  for (size_t at = 0; at < bytes.size(); ++at) {
    read(bytes.first(at));
    Bytes changed(bytes.begin(), bytes.end());
    for (const unsigned value : {0u, 1u, 0x7fu, 0xffu}) {
      changed[at] = static_cast<std::byte>(value);
      read(std::span<const std::byte>(changed));
    }
  }
}

}  // namespace rynlinuxd
