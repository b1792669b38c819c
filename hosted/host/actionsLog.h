// The record of actions on the kernel that were carried out. Any thread.
#pragma once

#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

namespace hosted {

/// An instance or input of an action.
using ActionField = std::variant<int64_t, std::string_view>;

/// Append one line: microseconds since the epoch, `operation` (a sysinfo node, or such as "vm/kill"), then `fields`.
/// Lines of one process stand in the order of their times. 0 or an errno value, which is logged.
int RecordAction(std::string_view operation, const std::vector<ActionField> &fields);

}  // namespace hosted
