// Puts entries together in the place where they are to stand. Stateless: any thread.
#pragma once

#include <atomic>
#include <cstring>
#include <span>

#include "flight/format.h"

namespace flight {

/// A piece of a payload, borrowed.
struct Piece {
  const void *bytes;
  size_t size;
};

/// What an entry says besides its payload.
struct Front {
  Kind kind;
  uint16_t thread;
  uint64_t monotonicNs, wallUs;
};

/// Bytes of the entry with this payload, without the zeros behind it.
inline size_t EntryLength(std::span<const Piece> payload) {
  size_t length = sizeof(EntryHeader);
  for (const Piece &piece : payload) length += piece.size;
  return length;
}

/// Write the entry to `at`, a multiple of 8, where Padded(EntryLength(payload)) bytes are free, at most kMaxEntrySize.
/// Its first word is written last: whoever finds it finds the whole entry, also when the writer was killed.
inline void PutEntry(std::byte *at, const Front &front, uint64_t seed, std::span<const Piece> payload) {
  const size_t length = EntryLength(payload);
  EntryHeader header = {static_cast<uint32_t>(length),
                        static_cast<uint16_t>(front.kind),
                        front.thread,
                        0,
                        front.monotonicNs,
                        front.wallUs};
  std::byte *to = at + sizeof header;
  for (const Piece &piece : payload) {
    if (piece.size > 0) std::memcpy(to, piece.bytes, piece.size);
    to += piece.size;
  }
  std::memset(to, 0, Padded(length) - length);
  constexpr size_t kFirst = 8;
  header.checksum = EntryChecksum(header, at + sizeof header, seed);
  std::memcpy(at + kFirst, reinterpret_cast<const std::byte *>(&header) + kFirst, sizeof header - kFirst);
  std::atomic_ref<uint64_t>(*reinterpret_cast<uint64_t *>(at)).store(FirstWord(header), std::memory_order_release);
}

}  // namespace flight
