// How wide the output is.
#pragma once

#include <cstddef>

#include "rynctl/console.h"

namespace rynctl {

/// Columns of the terminal that `console` prints to, 20 at least; 80 for anything else.
size_t OutputWidth(const Console &console);

}  // namespace rynctl
