// Text in lines of a width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

/// `text` in lines of at most `width` columns, each with its line end: `first` in front of the first, `rest` in front
/// of the others (both count). Broken at blanks; a longer word stands on a line of its own. A character of UTF-8 is one
/// column. Any thread.
std::string Wrap(std::string_view text, size_t width, std::string_view first, std::string_view rest);

}  // namespace text
