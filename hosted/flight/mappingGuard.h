// Keeps the process alive when bytes of a mapped file are gone: its disk has failed, or somebody has cut it.
#pragma once

#include <atomic>
#include <cstddef>

namespace hosted {

namespace mapping_guard {
inline std::atomic<bool> isLost = false;
}

/// From now on an access to this mapping that its file can't serve (SIGBUS) finds memory in place of all of it, zeros
/// at first, which goes nowhere; MappingIsLost() says so. False when as many as can be are guarded. One thread at a
/// time; accesses by any.
bool GuardMapping(std::byte *base, size_t size);
/// The mapping is about to go. One that was not guarded is left alone.
void UnguardMapping(const std::byte *base);

/// Whether a mapping was replaced since ForgetLostMappings. Any thread.
inline bool MappingIsLost() {
  return mapping_guard::isLost.load(std::memory_order_relaxed);
}
inline void ForgetLostMappings() {
  mapping_guard::isLost = false;
}

}  // namespace hosted
