// Walks the conversions of a printf or scanf-like format. Stateless: any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace hosted {

/// One conversion, such as "%-08.3lx" or "%2$u".
struct Conversion {
  enum class Length : uint8_t { kChar, kShort, kInt, kLong };
  static constexpr int kNone = -1;  ///< no precision, no width
  static constexpr int kStar = -2;  ///< an argument of its own gives it

  char letter = '\0';  ///< not checked; "%%" gives '%'
  Length length = Length::kInt;
  bool modified = false;  ///< has a length modifier
  bool left = false, plus = false, blank = false, alternate = false, zero = false;
  int width = kNone;
  int precision = kNone;
  uint32_t position = 0;  ///< the n of "%n$", from 1; 0 for none
};

/// Find the next conversion at or behind `*at` and move `*at` behind it; `*literal` receives the text before it. False
/// at the format's end. A malformed conversion gives the letter '\0' and moves to the format's end.
bool NextConversion(const char **at, std::string_view *literal, Conversion *conversion);

/// Whether a message may hold the conversion: one of d i u x X o c s p, each with what printf allows there, without
/// "n$".
bool IsMessageConversion(const Conversion &conversion);

}  // namespace hosted
