// Text of unknown origin made safe to show on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace text {

/// `text` with everything that could steer a terminal or reorder a line written out: control characters and bytes that
/// are no UTF-8 as \n, \t, \r or \xNN, C1 controls, line separators and direction marks as \uNNNN. The result is valid
/// UTF-8 on one line.
std::string EscapeForTerminal(std::string_view text);

/// Valid `json` with the characters written as \uNNNN that JSON lets stand in a text but a terminal should not be
/// given: DEL, C1 controls, line separators and direction marks. It means the same.
std::string EscapeJson(std::string_view json);

}  // namespace text
