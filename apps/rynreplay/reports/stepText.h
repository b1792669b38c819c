// Steps and events of a replay in words. Stateless.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "eventRecord/eventDecoder.h"
#include "replay/recording/player.h"

namespace replay {

/// What happened: `ryn.storage.apd.start ("naa.6001")`, or "timer page error period".
std::string StepText(const Step &step);
/// The id of the observation of a step, "" for another.
std::string_view StepId(const Step &step);
/// The texts and numbers that the observation of a step carries.
std::vector<std::string> StepArguments(const Step &step);

/// What of the arguments of a step's observation is otherwise than the catalogue says, such as "argument 2
/// (previous_state) is missing".
std::vector<std::string> ArgumentFaults(const Step &step);

/// The event that an outcome shows: the recorded one where there is one, since its stamp is the host's. Its texts are
/// borrowed from `outcome`. One that was dropped has no more than its name.
eventrecord::DecodedEvent EventOf(const Outcome &outcome);
/// Why it was dropped; "" when it was not.
const std::string &DropReasonOf(const Outcome &outcome);

}  // namespace replay
