// Breaks text at its blanks. Stateless: any thread.
#include "text/wrap.h"

#include <algorithm>

namespace text {
namespace {

size_t Columns(std::string_view text) {
  return static_cast<size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xc0) != 0x80; }));
}

}  // namespace

std::string Wrap(std::string_view text, size_t width, std::string_view first, std::string_view rest) {
  std::string lines, line(first);
  bool empty = true;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(' ', at), text.size());
    const std::string_view word = text.substr(at, end - at);
    at = end + 1;
    if (word.empty()) continue;
    if (!empty && Columns(line) + 1 + Columns(word) > width) {
      lines += line + "\n";
      line = rest;
      empty = true;
    }
    if (!empty) line += ' ';
    line += word;
    empty = false;
  }
  return lines + line + "\n";
}

}  // namespace text
