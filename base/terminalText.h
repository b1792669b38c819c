// Text of unknown origin made safe to show: nothing that steers a terminal or reorders a line. Stateless: any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace base {

/// One character of UTF-8: its code point and bytes; `length` is 0 when there is no valid one.
struct Utf8Character {
  uint32_t code = 0;
  size_t length = 0;
};

/// The first character of `text`, which is not empty. Overlong forms and surrogates are no characters.
inline Utf8Character FirstCharacter(std::string_view text) {
  const auto at = [text](size_t index) { return static_cast<uint8_t>(text[index]); };
  const uint8_t lead = at(0);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return {};
  uint32_t code = lead & (0xffU >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xc0) != 0x80) return {};
    code = code << 6 | (at(i) & 0x3fU);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  if (code < kSmallest[length] || code > 0x10ffff || surrogate) return {};
  return {code, length};
}

/// Characters that no terminal should be given though they are no C0 controls: DEL, C1 controls, line separators, marks
/// that turn the writing direction. All have at most 16 bits.
inline bool IsUnsafeToShow(uint32_t code) {
  return (code >= 0x7f && code <= 0x9f) || code == 0x61c || (code >= 0x200e && code <= 0x200f) ||
         (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
}

/// The bytes at the start of `text` that can be shown as they are.
inline size_t ShowablePrefix(std::string_view text) {
  size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<uint8_t>(text[at]);
    if (lead >= 0x20 && lead < 0x7f) {
      ++at;
      continue;
    }
    const Utf8Character character = FirstCharacter(text.substr(at));
    if (character.length == 0 || character.code < 0x20 || IsUnsafeToShow(character.code)) break;
    at += character.length;
  }
  return at;
}

/// Append `text` with everything unsafe written out: C0 controls, DEL and bytes that are no UTF-8 as \n, \t, \r or
/// \xNN, what else is unsafe as \uNNNN. What is appended is valid UTF-8 on one line. Throws std::bad_alloc.
inline void AppendForTerminal(std::string_view text, std::string *out) {
  while (!text.empty()) {
    const size_t plain = ShowablePrefix(text);
    out->append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) return;
    const Utf8Character character = FirstCharacter(text);
    const uint32_t code = character.length == 0 ? static_cast<uint8_t>(text[0]) : character.code;
    std::array<char, 8> written{};
    if (code == '\n' || code == '\t' || code == '\r') {
      written = {'\\', code == '\n' ? 'n' : code == '\t' ? 't' : 'r'};
    } else {
      const bool byte = character.length == 0 || code < 0x20 || code == 0x7f;
      std::snprintf(written.data(), written.size(), byte ? "\\x%02x" : "\\u%04x", code & 0xffffU);
    }
    out->append(written.data());
    text.remove_prefix(character.length == 0 ? 1 : character.length);
  }
}

}  // namespace base
