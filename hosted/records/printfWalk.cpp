// Walks the conversions of a printf or scanf-like format: one parser for reading, serialising and rendering.
// Stateless: any thread.
#include "hosted/records/printfWalk.h"

#include <cstring>

namespace hosted {
namespace {

constexpr int kLargestNumber = 1'000'000;  // numbers above it count as it

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

int ParseNumber(const char **at) {
  int number = 0;
  for (; IsDigit(**at); ++*at) {
    number = number * 10 + (**at - '0');
    if (number > kLargestNumber) number = kLargestNumber;
  }
  return number;
}

/// "n$", when it stands there. False when n is 0.
bool ParsePosition(const char **at, Conversion *conversion) {
  const char *end = *at;
  const int number = ParseNumber(&end);
  if (end == *at || *end != '$') return true;
  conversion->position = static_cast<uint32_t>(number);
  *at = end + 1;
  return number != 0;
}

void ParseFlags(const char **at, Conversion *conversion) {
  for (;; ++*at) {
    switch (**at) {
      case '-':
        conversion->left = true;
        break;
      case '+':
        conversion->plus = true;
        break;
      case ' ':
        conversion->blank = true;
        break;
      case '#':
        conversion->alternate = true;
        break;
      case '0':
        conversion->zero = true;
        break;
      default:
        return;
    }
  }
}

/// A number or '*'; `otherwise` when neither stands there.
int ParseSize(const char **at, int otherwise) {
  if (**at == '*') {
    ++*at;
    return Conversion::kStar;
  }
  return IsDigit(**at) ? ParseNumber(at) : otherwise;
}

void ParseLength(const char **at, Conversion *conversion) {
  const char modifier = **at;
  if (modifier == '\0' || std::strchr("hlzjt", modifier) == nullptr) return;
  conversion->modified = true;
  const bool twice = (modifier == 'h' || modifier == 'l') && (*at)[1] == modifier;
  *at += twice ? 2 : 1;
  // long, long long, size_t, intmax_t and ptrdiff_t all have 64 bits here.
  static_assert(sizeof(long) == 8 && sizeof(long long) == 8);
  conversion->length = modifier != 'h' ? Conversion::Length::kLong
                       : twice         ? Conversion::Length::kChar
                                       : Conversion::Length::kShort;
}

/// The conversion behind a '%'. False when it is malformed.
bool ParseConversion(const char **at, Conversion *conversion) {
  if (!ParsePosition(at, conversion)) return false;
  ParseFlags(at, conversion);
  conversion->width = ParseSize(at, Conversion::kNone);
  if (**at == '.') {
    ++*at;
    conversion->precision = ParseSize(at, 0);
  }
  ParseLength(at, conversion);
  if (**at == '\0') return false;
  conversion->letter = *(*at)++;
  return true;
}

}  // namespace

bool NextConversion(const char **at, std::string_view *literal, Conversion *conversion) {
  const char *percent = std::strchr(*at, '%');
  *literal = percent == nullptr ? std::string_view(*at) : std::string_view(*at, static_cast<size_t>(percent - *at));
  *at += literal->size();
  *conversion = {};
  if (percent == nullptr) return false;
  ++*at;
  if (!ParseConversion(at, conversion)) {
    conversion->letter = '\0';
    *at += std::strlen(*at);
  }
  return true;
}

bool IsMessageConversion(const Conversion &conversion) {
  if (conversion.position != 0) return false;
  switch (conversion.letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return true;
    case 'c':
    case 's':
    case 'p':
      return !conversion.modified;
    default:
      return false;
  }
}

}  // namespace hosted
