// The sources: one file each, and one row in the table.
#pragma once

#include <memory>

#include "loop/source.h"

namespace rynlinuxd {

std::unique_ptr<Source> MakeLinks();
std::unique_ptr<Source> MakeCrashes();

}  // namespace rynlinuxd
