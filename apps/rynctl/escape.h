// Text of unknown origin made safe to show on a terminal.
#pragma once

#include "text/escape.h"

namespace rynctl {

using text::EscapeForTerminal;
using text::EscapeJson;

}  // namespace rynctl
