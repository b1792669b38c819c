// Events and problems as JSON: for the web page, the programs that are run, and people with jq. Stateless: any thread.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "mgmtd/store/storedEvent.h"

namespace mgmtd {

/// "2024-05-01T07:30:00.125000Z".
std::string IsoTime(int64_t microseconds);

/// {"id","time","received","name","category","severity","subjects":[...],"text","arguments":[{"name","value"}...],
/// "host","sequence"} and "damage" where there is some.
nlohmann::ordered_json ToJson(const StoredEvent &event);
/// {"id" (the first event's),"problem","name","severity","subject","about":{...},"text","host","since","last","times",
/// "open"} and, of one that has ended, "ended","endedBy","endedByEvent".
nlohmann::ordered_json ToJson(const Problem &problem);

/// `json` as text; what is no UTF-8 in it is replaced.
std::string Dump(const nlohmann::ordered_json &json);

}  // namespace mgmtd
