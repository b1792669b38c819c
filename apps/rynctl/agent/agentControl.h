// Asking the management agent, over its control socket.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace rynctl {

/// What the agent answered.
struct AgentAnswer {
  bool there = false;   ///< an agent took the question
  std::string error{};  ///< "" or what went wrong and what to do
  nlohmann::ordered_json answer{};
};

/// Ask one question; takes 3 s at most.
AgentAnswer AskAgent(const nlohmann::ordered_json &question);

}  // namespace rynctl
