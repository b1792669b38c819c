// The agent functions of all correlators, and the rows that each can post. An agent function runs on its own thread.
#pragma once

#include <span>

#include "core/agents.h"
#include "correlators/postRow.h"

namespace rynd {

void RyndApdCorrelator();
std::span<const PostRow> ApdPostRows();
void RyndFabraCorrelator();

/// The agents in the order in which they start.
std::span<const AgentFunction> AgentTable();

}  // namespace rynd
