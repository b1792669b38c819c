// Names replaced by others of the same form. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

namespace flight {

/// A text consists of words of letters and digits, and of what parts them; what the daemon looks for inside of a name
/// is a word by itself, and stays. A word has one pseudonym, wherever it stands, of the same length and with the same
/// kinds of characters in the same places; no two words share one. So what is put together of words, or taken apart, is
/// the same as what is made of their pseudonyms.
class Pseudonyms {
 public:
  /// Different keys give different pseudonyms.
  explicit Pseudonyms(uint64_t key);

  /// Replace each word of `text` in its place. Words of up to two characters stay, and those that the daemon compares
  /// or says itself.
  void Replace(std::span<char> text);
  /// Replace those words only that Replace has met: what the daemon has made of names and of texts of its own.
  void ReplaceKnown(std::span<char> text);

  static constexpr size_t kMostWords = 1'000'000;
  /// More words have come than can be told apart: further ones became x's.
  bool IsFull() const { return pseudonyms_.size() >= kMostWords; }

 private:
  void ReplaceWords(std::span<char> text, bool isInput);
  std::string Make(std::string_view word);

  uint64_t key_;
  std::unordered_map<std::string, std::string> pseudonyms_;  ///< by word
  std::set<std::string, std::less<>> used_;
};

}  // namespace flight
