// Reads and writes JSON objects of strings. Stateless: any thread.
#include "hosted/store/flatJson.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace hosted {
namespace {

/// The length of the UTF-8 character at the front of `text`, or 0 when none stands there.
size_t CharacterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  // Overlong forms, surrogates, and what lies beyond Unicode.
  const bool wrong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
                     (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f);
  return wrong ? 0 : length;
}

void AppendUtf8(uint32_t code, std::string *text) {
  const auto tail = [&](unsigned shift) { *text += static_cast<char>(0x80 | ((code >> shift) & 0x3f)); };
  if (code < 0x80) {
    *text += static_cast<char>(code);
  } else if (code < 0x800) {
    *text += static_cast<char>(0xc0 | (code >> 6));
    tail(0);
  } else if (code < 0x10000) {
    *text += static_cast<char>(0xe0 | (code >> 12));
    tail(6);
    tail(0);
  } else {
    *text += static_cast<char>(0xf0 | (code >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

class Parser {
 public:
  explicit Parser(std::string_view text) : left_(text) {}

  std::optional<FlatJson> Object() {
    FlatJson members;
    if (!Take('{')) return std::nullopt;
    if (!Take('}')) {
      do {
        std::string name, value;
        if (!String(&name) || !Take(':') || !String(&value)) return std::nullopt;
        SetMember(name, value, &members);
      } while (Take(','));
      if (!Take('}')) return std::nullopt;
    }
    SkipBlanks();
    if (!left_.empty()) return std::nullopt;
    return members;
  }

 private:
  void SkipBlanks() { left_.remove_prefix(std::min(left_.find_first_not_of(" \t\r\n"), left_.size())); }

  bool Take(char wanted) {
    SkipBlanks();
    if (!left_.starts_with(wanted)) return false;
    left_.remove_prefix(1);
    return true;
  }

  bool String(std::string *out) {
    if (!Take('"')) return false;
    while (!left_.empty() && left_.front() != '"') {
      if (left_.front() == '\\' ? !Escape(out) : !Character(out)) return false;
    }
    return Take('"');
  }

  bool Character(std::string *out) {
    const size_t length = CharacterLength(left_);
    if (length == 0 || static_cast<unsigned char>(left_.front()) < 0x20) return false;
    out->append(left_.substr(0, length));
    left_.remove_prefix(length);
    return true;
  }

  bool Escape(std::string *out) {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    if (left_.size() < 2) return false;
    if (left_[1] == 'u') return Unicode(out);
    const size_t letter = kLetters.find(left_[1]);
    if (letter == std::string_view::npos) return false;
    *out += kMeanings[letter];
    left_.remove_prefix(2);
    return true;
  }

  bool Unicode(std::string *out) {
    uint32_t code = 0;
    if (!Hex(&code)) return false;
    if (code >= 0xd800 && code <= 0xdbff) {
      uint32_t low = 0;
      if (!Hex(&low) || low < 0xdc00 || low > 0xdfff) return false;
      code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
    } else if (code == 0 || (code >= 0xdc00 && code <= 0xdfff)) {
      return false;
    }
    AppendUtf8(code, out);
    return true;
  }

  /// "\uXXXX".
  bool Hex(uint32_t *code) {
    if (left_.size() < 6 || left_[0] != '\\' || left_[1] != 'u') return false;
    for (size_t i = 2; i < 6; ++i) {
      const char c = left_[i];
      const bool digit = c >= '0' && c <= '9';
      const char lower = static_cast<char>(c | 0x20);
      if (!digit && (lower < 'a' || lower > 'f')) return false;
      *code = *code << 4 | static_cast<uint32_t>(digit ? c - '0' : lower - 'a' + 10);
    }
    left_.remove_prefix(6);
    return true;
  }

  std::string_view left_;
};

void AppendString(std::string_view text, std::string *out) {
  *out += '"';
  while (!text.empty()) {
    const char c = text.front();
    const size_t length = CharacterLength(text);
    if (length == 0) {
      AppendUtf8(0xfffd, out);
    } else if (c == '"' || c == '\\') {
      *out += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      constexpr char kDigits[] = "0123456789abcdef";
      out->append("\\u00").append(1, kDigits[c >> 4]).append(1, kDigits[c & 15]);
    } else {
      out->append(text.substr(0, length));
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  *out += '"';
}

}  // namespace

bool ParseFlatJson(std::string_view text, FlatJson *members) {
  std::optional<FlatJson> parsed = Parser(text).Object();
  if (!parsed) return false;
  *members = std::move(*parsed);
  return true;
}

std::string FormatFlatJson(const FlatJson &members) {
  std::string text = "{";
  for (const auto &[name, value] : members) {
    if (text.size() > 1) text += ", ";
    AppendString(name, &text);
    text += ": ";
    AppendString(value, &text);
  }
  return text + "}";
}

void SetMember(std::string_view name, std::string_view value, FlatJson *members) {
  const auto place = std::ranges::find(*members, name, &FlatJson::value_type::first);
  if (place != members->end()) {
    place->second = value;
  } else {
    members->emplace_back(name, value);
  }
}

}  // namespace hosted
