// Renders single printf conversions. By hand, as no format is built at run time, and with limits that the C library
// does not have. Stateless: any thread.
#include "hosted/records/textRender.h"

#include <algorithm>
#include <array>

namespace hosted {
namespace {

size_t Limit(int number) {
  return static_cast<size_t>(std::clamp(number, 0, kLargestField));
}

/// Append prefix and text, filled up to the field's width.
void AppendField(std::string *out, const Conversion &conversion, std::string_view prefix, std::string_view text,
                 bool zeros) {
  const size_t size = prefix.size() + text.size();
  const size_t width = Limit(conversion.width);
  const size_t fill = width > size ? width - size : 0;
  if (!conversion.left && !zeros) out->append(fill, ' ');
  out->append(prefix);
  if (!conversion.left && zeros) out->append(fill, '0');
  out->append(text);
  if (conversion.left) out->append(fill, ' ');
}

/// The lowest `bytes` of `bits`, extended to 64 bits.
uint64_t Narrow(uint64_t bits, unsigned bytes, bool isSigned) {
  if (bytes >= 8) return bits;
  const unsigned drop = 64 - 8 * bytes;
  bits <<= drop;
  return isSigned ? static_cast<uint64_t>(static_cast<int64_t>(bits) >> drop) : bits >> drop;
}

/// How many bytes of an argument a conversion shows at most.
unsigned ConversionBytes(Conversion::Length length) {
  switch (length) {
    case Conversion::Length::kChar:
      return 1;
    case Conversion::Length::kShort:
      return 2;
    default:
      return 8;
  }
}

/// The digits of `value`, none for 0: a precision says how many zeros stand for it.
std::string Digits(uint64_t value, unsigned base, bool upper) {
  std::array<char, 24> text;
  size_t at = text.size();
  for (; value != 0; value /= base) text[--at] = (upper ? "0123456789ABCDEF" : "0123456789abcdef")[value % base];
  return {text.data() + at, text.size() - at};
}

unsigned Base(char letter) {
  if (letter == 'o') return 8;
  return letter == 'x' || letter == 'X' || letter == 'p' ? 16 : 10;
}

}  // namespace

void AppendInteger(std::string *out, const Conversion &conversion, uint64_t bits, unsigned bytes) {
  const char letter = conversion.letter;
  const bool isSigned = letter == 'd' || letter == 'i';
  bits = Narrow(bits, std::min(bytes, ConversionBytes(conversion.length)), isSigned);
  if (letter == 'p' && bits == 0) return AppendField(out, conversion, "", "(nil)", false);
  const bool negative = isSigned && static_cast<int64_t>(bits) < 0;

  std::string digits = Digits(negative ? 0 - bits : bits, Base(letter), letter == 'X');
  const size_t least = conversion.precision < 0 ? 1 : Limit(conversion.precision);
  if (digits.size() < least) digits.insert(0, least - digits.size(), '0');
  const bool alternate = conversion.alternate || letter == 'p';
  if (letter == 'o' && alternate && !digits.starts_with('0')) digits.insert(0, 1, '0');

  std::string_view prefix;
  if (isSigned) prefix = negative ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
  if (Base(letter) == 16 && alternate && bits != 0) prefix = letter == 'X' ? "0X" : "0x";
  AppendField(out, conversion, prefix, digits, conversion.zero && conversion.precision < 0);
}

void AppendText(std::string *out, const Conversion &conversion, std::string_view text) {
  if (conversion.precision >= 0) text = text.substr(0, static_cast<size_t>(conversion.precision));
  AppendField(out, conversion, "", text, false);
}

void AppendCharacter(std::string *out, const Conversion &conversion, char character) {
  AppendField(out, conversion, "", {&character, 1}, false);
}

}  // namespace hosted
