// Tells of user connections that were refused, at most once a second. The poll loop's thread only.
#pragma once

#include "hosted/contexts/discardLog.h"

namespace hosted {

/// Tell that the connection of `sender` (null when it is not known) was refused, unless another was told of less than a
/// second ago: the next line says how many those were. `reason` is for a person.
void TellRefused(const Sender *sender, const char *reason);

}  // namespace hosted
