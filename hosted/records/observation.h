// An observation made from one raw record. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "hosted/records/rawArgument.h"
#include "platform/ryn.h"

/// The record's bytes, and where its parts lie in them.
struct Observation {
  std::unique_ptr<std::byte[]> bytes;  ///< passed by CheckRecord
  size_t length = 0;
  hosted::RawHeader header{};
  std::array<uint32_t, 8> fewOffsets{};     ///< of the arguments, when there are no more
  std::unique_ptr<uint32_t[]> manyOffsets;  ///< of the arguments otherwise
  const uint32_t *Offsets() const { return manyOffsets == nullptr ? fewOffsets.data() : manyOffsets.get(); }
};

namespace hosted {

/// Argument `index` into `view`. 0 or kRynNoArgument.
int FindArgument(const Observation *observation, uint32_t index, RawArgumentView *view);
/// Argument `index` as text. 0 or a status.
int ReadText(const Observation *observation, uint32_t index, const char **text);
/// Argument `index` as an integer that fits `width` bytes, signed or unsigned, into `output`. 0 or a status.
int ReadInteger(const Observation *observation, uint32_t index, size_t width, void *output);

}  // namespace hosted
