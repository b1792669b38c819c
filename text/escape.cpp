// Writes out whatever is no plain character. Stateless: any thread.
#include "text/escape.h"

#include <array>
#include <cstdio>

#include "base/terminalText.h"

namespace text {

std::string EscapeForTerminal(std::string_view text) {
  std::string result;
  base::AppendForTerminal(text, &result);
  return result;
}

std::string EscapeJson(std::string_view json) {
  std::string result;
  while (!json.empty()) {
    const base::Utf8Character character = base::FirstCharacter(json);
    const size_t length = character.length == 0 ? 1 : character.length;
    if (character.length != 0 && base::IsUnsafeToShow(character.code)) {
      std::array<char, 8> written;
      std::snprintf(written.data(), written.size(), "\\u%04x", character.code & 0xffffU);
      result += written.data();
    } else {
      result += json.substr(0, length);
    }
    json.remove_prefix(length);
  }
  return result;
}

}  // namespace text
