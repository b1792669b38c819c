// Asking the management agent, over its control socket.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace rynctl {

/// Ask one question; takes 3 s at most. "" and the answer, or what went wrong and what to do.
std::string AskAgent(const nlohmann::ordered_json &question, nlohmann::ordered_json *answer);

}  // namespace rynctl
