#include "core/basics/jsonText.h"

#include <cstdio>

#include "base/terminalText.h"

namespace rynd {
namespace {

void AppendCode(std::string *out, uint32_t code) {
  char escape[7];
  snprintf(escape, sizeof escape, "\\u%04x", code & 0xffffU);
  *out += escape;
}

}  // namespace

void AppendJsonText(std::string *out, std::string_view text) {
  *out += '"';
  while (!text.empty()) {
    const std::string_view plain = text.substr(0, base::ShowablePrefix(text));
    for (const char c : plain) {
      if (c == '"' || c == '\\') *out += '\\';
      *out += c;
    }
    text.remove_prefix(plain.size());
    if (text.empty()) break;
    const base::Utf8Character character = base::FirstCharacter(text);
    AppendCode(out, character.length == 0 ? 0xfffd : character.code);
    text.remove_prefix(character.length == 0 ? 1 : character.length);
  }
  *out += '"';
}

JsonScope &JsonScope::Key(std::string_view name) {
  Next();
  *out_ += '"';
  *out_ += name;
  *out_ += "\":";
  return *this;
}

}  // namespace rynd
