// The sources: one file each, and one row in the table.
#pragma once

#include <memory>

#include "loop/source.h"

namespace rynlinuxd {

std::unique_ptr<Source> MakeLinks();
std::unique_ptr<Source> MakeBonds();
std::unique_ptr<Source> MakeTxTimeouts();
std::unique_ptr<Source> MakeAddresses();
std::unique_ptr<Source> MakeCrashes();
std::unique_ptr<Source> MakeFileSystems();
std::unique_ptr<Source> MakeFsErrors();
std::unique_ptr<Source> MakeOutOfMemory();
std::unique_ptr<Source> MakeRaid();
std::unique_ptr<Source> MakeDisks();
std::unique_ptr<Source> MakeMultipath();
std::unique_ptr<Source> MakeMachineChecks();
std::unique_ptr<Source> MakePages();
std::unique_ptr<Source> MakeBoot();
std::unique_ptr<Source> MakeHostClock();
std::unique_ptr<Source> MakeHostStop();

}  // namespace rynlinuxd
