// The correlators of network: the agent function of each, which runs on its own thread, its handlers, and the rows
// and other messages that it can post.
#pragma once

#include <span>

#include "core/agents/handlerTable.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/rows/postRow.h"

namespace rynd {

void RyndNetCorrelator();
HandlerTable NetHandlers();
std::span<const PostRow> NetPostRows();
std::span<const PostRow> NetFirewallConfigPostRows();
std::span<const PostRow> NetFirewallPortPostRows();
std::span<const EventMessage> NetMessages();

void RyndMigrateCorrelator();
HandlerTable MigrateHandlers();
std::span<const EventMessage> MigrateMessages();

}  // namespace rynd
