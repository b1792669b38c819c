// All sources, in the order in which they start.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "loop/options.h"
#include "loop/source.h"

namespace rynlinuxd {

/// The sources that `options` names, or all. One that does not exist makes the list empty and is named in `error`.
std::vector<std::unique_ptr<Source>> MakeSources(const Options &options, std::string *error);

}  // namespace rynlinuxd
