// Well-formed bytes that an input is laid over, so that a fuzzer starts close to what is accepted.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "hosted/records/rawRecord.h"

namespace fuzz {

/// A record with one argument of each kind.
inline std::vector<std::byte> SeedRecord() {
  using hosted::ArgumentKind;
  hosted::RawRecord record{0, 0, "ryn.a.seed", "a message", {}};
  record.arguments = {{ArgumentKind::kString, 0, 0, "text"},
                      {ArgumentKind::kSigned, 4, static_cast<uint64_t>(-5), {}},
                      {ArgumentKind::kUnsigned, 8, UINT64_MAX, {}},
                      {ArgumentKind::kNullString, 0, 0, {}}};
  return hosted::EncodeRecord(record);
}

/// The input as it is, or with its first byte odd what `seed` becomes when triples of it (two bytes of position, one of
/// value) are written over it.
inline std::vector<std::byte> Mutate(const uint8_t *data, size_t size, std::vector<std::byte> seed) {
  const auto *bytes = reinterpret_cast<const std::byte *>(data);
  if (size == 0 || data[0] % 2 == 0) return {bytes, bytes + size};
  for (size_t i = 1; i + 2 < size; i += 3) seed[(data[i] | size_t{data[i + 1]} << 8) % seed.size()] = bytes[i + 2];
  return seed;
}

}  // namespace fuzz
