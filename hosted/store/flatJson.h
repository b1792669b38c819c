// JSON objects whose values are all strings. Stateless: any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hosted {

/// The members of an object in their order; names and values are UTF-8, without NUL.
using FlatJson = std::vector<std::pair<std::string, std::string>>;

/// Parse the whole of `text`. Of several members with one name the last stays. False, `members` untouched, when it is
/// no JSON object, or holds a value that is no string, or a NUL.
bool ParseFlatJson(std::string_view text, FlatJson *members);

/// One line of JSON. Bytes that are no UTF-8 become U+FFFD, one each.
std::string FormatFlatJson(const FlatJson &members);

/// Set the member called `name`, at its place or behind the others.
void SetMember(std::string_view name, std::string_view value, FlatJson *members);

}  // namespace hosted
