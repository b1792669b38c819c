#include "flight/pseudonyms.h"

#include <algorithm>
#include <array>

#include "flight/format.h"

namespace flight {
namespace {

constexpr size_t kShortest = 3;  // characters of a word that is replaced
constexpr uint64_t kMostTries = 10'000;

/// What the daemon looks for in a text, or puts into one itself.
constexpr auto kKept = std::to_array<std::string_view>(
    {"configstore", "hyfs",     "volumes", "scratch", "GenuineIntel", "Unknown",   "unknown",   "UNKNOWN",
     "USER",        "invalid",  "null",    "type",    "user",         "subsystem", "timestamp", "reason",
     "reboot",      "poweroff", "ambcli",  "dead",    "off",          "standby"});
/// What it looks for inside of a word: a word by itself, wherever it stands.
constexpr auto kSought = std::to_array<std::string_view>({"mgmtd", "fleetd"});

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsLower(char c) {
  return c >= 'a' && c <= 'z';
}
bool IsUpper(char c) {
  return c >= 'A' && c <= 'Z';
}
/// Bytes of other alphabets are words too.
bool IsOfWord(char c) {
  return IsDigit(c) || IsLower(c) || IsUpper(c) || static_cast<unsigned char>(c) >= 0x80;
}
/// The end of the word that begins at `at`; `at` when none does.
size_t EndOfWord(std::string_view text, size_t at) {
  size_t end = at;
  for (; end < text.size() && IsOfWord(text[end]); ++end) {
    for (const std::string_view sought : kSought) {
      if (text.substr(end).starts_with(sought)) return end > at ? end : end + sought.size();
    }
  }
  return end;
}
bool HasSought(std::string_view word) {
  return std::ranges::any_of(kSought, [word](std::string_view sought) { return word.find(sought) != word.npos; });
}
/// Hexadecimal numbers stay some.
bool IsHex(std::string_view word) {
  return std::ranges::all_of(word,
                             [](char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); });
}

/// A character in place of `c`, chosen by `number`.
char Instead(char c, bool isHex, uint64_t number) {
  if (IsDigit(c)) return static_cast<char>('0' + number % 10);
  if (IsUpper(c)) return static_cast<char>('A' + number % (isHex ? 6 : 26));
  return static_cast<char>('a' + number % (isHex ? 6 : 26));
}

}  // namespace

Pseudonyms::Pseudonyms(uint64_t key) : key_(key), used_(kKept.begin(), kKept.end()) {}

std::string Pseudonyms::Make(std::string_view word) {
  const bool isHex = IsHex(word);
  std::string made(word);
  for (uint64_t attempt = 0; attempt < kMostTries && !IsFull(); ++attempt) {
    uint64_t state = RecordHash(std::as_bytes(std::span(word)).data(), word.size()) ^ key_ ^ attempt << 40;
    for (size_t i = 0; i < word.size(); ++i) {
      state = Checksum(&state, sizeof state, key_ + i);
      made[i] = Instead(word[i], isHex, state >> 8);
    }
    if (!HasSought(made) && used_.insert(made).second) return made;
  }
  // All of this form are taken, or too many words have come.
  std::ranges::fill(made, 'x');
  return made;
}

void Pseudonyms::ReplaceWords(std::span<char> text, bool isInput) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = EndOfWord({text.data(), text.size()}, at);
    const std::string word(text.data() + at, end - at);
    auto known = pseudonyms_.find(word);
    if (known == pseudonyms_.end() && isInput && word.size() >= kShortest && !HasSought(word) &&
        std::ranges::find(kKept, word) == kKept.end()) {
      std::string made = Make(word);
      if (IsFull()) {
        std::ranges::copy(made, text.data() + at);
      } else {
        known = pseudonyms_.emplace(word, std::move(made)).first;
      }
    }
    if (known != pseudonyms_.end()) std::ranges::copy(known->second, text.data() + at);
    at = std::max(end, at + 1);
  }
}

void Pseudonyms::Replace(std::span<char> text) {
  ReplaceWords(text, true);
}

void Pseudonyms::ReplaceKnown(std::span<char> text) {
  ReplaceWords(text, false);
}

}  // namespace flight
