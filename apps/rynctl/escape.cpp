// Decodes UTF-8 strictly and writes out whatever is no plain character. Stateless: any thread.
#include "rynctl/escape.h"

#include <cstdint>
#include <cstdio>

namespace rynctl {
namespace {

/// One character of UTF-8: its code point and bytes; `length` is 0 when there is no valid one.
struct Character {
  uint32_t code = 0;
  size_t length = 0;
};

uint8_t ByteAt(std::string_view text, size_t index) {
  return static_cast<uint8_t>(text[index]);
}

Character FirstCharacter(std::string_view text) {
  const uint8_t lead = ByteAt(text, 0);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return {};
  uint32_t code = lead & (0xffU >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xc0) != 0x80) return {};
    code = code << 6 | (ByteAt(text, i) & 0x3fU);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  if (code < kSmallest[length] || code > 0x10ffff || surrogate) return {};
  return {code, length};
}

/// Characters that no terminal should be given: C1 controls, line separators, marks that turn the writing direction.
bool IsUnsafe(uint32_t code) {
  return (code >= 0x7f && code <= 0x9f) || code == 0x61c || (code >= 0x200e && code <= 0x200f) ||
         (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
}

void AppendHex(std::string *result, const char *prefix, int digits, uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%s%0*x", prefix, digits, value);
  *result += text;
}

}  // namespace

std::string EscapeForTerminal(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Character character = FirstCharacter(text);
    const size_t length = character.length == 0 ? 1 : character.length;
    if (character.length == 0) {
      AppendHex(&result, "\\x", 2, ByteAt(text, 0));
    } else if (character.code == '\n') {
      result += "\\n";
    } else if (character.code == '\t') {
      result += "\\t";
    } else if (character.code == '\r') {
      result += "\\r";
    } else if (character.code < 0x20 || character.code == 0x7f) {
      AppendHex(&result, "\\x", 2, character.code);
    } else if (IsUnsafe(character.code)) {
      AppendHex(&result, "\\u", 4, character.code);
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return result;
}

}  // namespace rynctl
