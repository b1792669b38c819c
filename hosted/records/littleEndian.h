// Fields of packed little-endian records, read and written wherever they lie.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

namespace hosted {

static_assert(std::endian::native == std::endian::little, "records are copied as they lie");

/// The T at `bytes`, which need not be aligned.
template <typename T>
T LoadLittle(const std::byte *bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

/// Store `value` at `bytes`, which need not be aligned.
template <typename T>
void StoreLittle(std::byte *bytes, T value) {
  std::memcpy(bytes, &value, sizeof value);
}

}  // namespace hosted
