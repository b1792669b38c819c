// What each correlator gives: its agent function, which runs on its own thread; its handlers; and the rows and other
// messages that it can post.
#pragma once

#include <span>

#include "core/agents.h"
#include "core/handlerTable.h"
#include "correlators/eventMessage.h"
#include "correlators/postRow.h"

namespace rynd {

void RyndApdCorrelator();
HandlerTable ApdHandlers();
std::span<const PostRow> ApdPostRows();

void RyndNetCorrelator();
HandlerTable NetHandlers();
std::span<const PostRow> NetPostRows();
std::span<const PostRow> NetFirewallConfigPostRows();
std::span<const PostRow> NetFirewallPortPostRows();
std::span<const EventMessage> NetMessages();

void RyndMigrateCorrelator();
HandlerTable MigrateHandlers();
std::span<const EventMessage> MigrateMessages();

void RyndFabraCorrelator();

void RyndUserLevelCorrelator();
HandlerTable UserLevelHandlers();
std::span<const EventMessage> UserLevelMessages();

void RyndUserWorldCorrelator();
HandlerTable UserWorldHandlers();
std::span<const PostRow> UserWorldPostRows();
std::span<const EventMessage> UserWorldMessages();

void RyndVmCorrelator();
HandlerTable VmHandlers();
std::span<const PostRow> VmPostRows();

void RyndGenericCorrelator();
HandlerTable GenericHandlers();
std::span<const EventMessage> GenericMessages();

/// The agents in the order in which they start.
std::span<const AgentFunction> AgentTable();

}  // namespace rynd
