// Renders single printf conversions without a format that is built at run time. Stateless: any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "hosted/records/printfWalk.h"

namespace hosted {

/// A wider field or a longer run of digits is not rendered: the numbers may come from another process.
constexpr int kLargestField = 4096;

/// Append an integer as one of d i u x X o p. `bits` is extended to 64 bits; `bytes` (1 to 8) is how many of its bytes
/// count, unless the conversion's length says fewer.
void AppendInteger(std::string *out, const Conversion &conversion, uint64_t bits, unsigned bytes);
/// Append a text as s does, precision and width included.
void AppendText(std::string *out, const Conversion &conversion, std::string_view text);
/// Append one byte as c does.
void AppendCharacter(std::string *out, const Conversion &conversion, char character);

}  // namespace hosted
