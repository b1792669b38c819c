// Version 5 UUIDs: SHA-1 of a namespace and a name. Stateless: any thread.
#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>

#include "catalog/catalog.h"

namespace catalog {
namespace {

using Digest = std::array<uint32_t, 5>;

/// Take one block of 64 bytes into `digest`.
void AddBlock(std::string_view block, Digest *digest) {
  std::array<uint32_t, 80> words{};
  for (size_t i = 0; i < 64; ++i) words[i / 4] = words[i / 4] << 8 | static_cast<uint8_t>(block[i]);
  for (size_t i = 16; i < 80; ++i) {
    words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
  }
  auto [a, b, c, d, e] = *digest;
  for (size_t i = 0; i < 80; ++i) {
    const uint32_t mix[] = {(b & c) | (~b & d), b ^ c ^ d, (b & c) | (b & d) | (c & d), b ^ c ^ d};
    constexpr uint32_t kRound[] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};
    const uint32_t next = std::rotl(a, 5) + mix[i / 20] + e + kRound[i / 20] + words[i];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = next;
  }
  const uint32_t sums[] = {a, b, c, d, e};
  for (size_t i = 0; i < digest->size(); ++i) (*digest)[i] += sums[i];
}

Digest Sha1(std::string text) {
  const uint64_t bits = text.size() * 8;
  text += '\x80';
  while (text.size() % 64 != 56) text += '\0';
  for (int shift = 56; shift >= 0; shift -= 8) text += static_cast<char>(bits >> shift);
  Digest digest = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  for (size_t at = 0; at < text.size(); at += 64) AddBlock(std::string_view(text).substr(at, 64), &digest);
  return digest;
}

/// The 16 bytes of a UUID's text.
std::string UuidBytes(std::string_view text) {
  std::string bytes;
  int digits = 0, value = 0;
  for (const char c : text) {
    if (c == '-') continue;
    value = value << 4 | (c <= '9' ? c - '0' : c - 'a' + 10);
    if (++digits % 2 == 0) bytes += static_cast<char>(value & 0xff);
  }
  return bytes;
}

}  // namespace

std::string MessageId(std::string_view eventName) {
  Digest digest = Sha1(UuidBytes(kMessageNamespace).append(eventName));
  digest[1] = (digest[1] & 0xffff0fffU) | 0x5000U;      // version 5
  digest[2] = (digest[2] & 0x3fffffffU) | 0x80000000U;  // the standard's variant
  char text[33];
  std::snprintf(text, sizeof text, "%08x%08x%08x%08x", digest[0], digest[1], digest[2], digest[3]);
  return text;
}

}  // namespace catalog
