// The correlators of user programs and virtual machines: the agent function of each, which runs on its own thread, its
// handlers, and the rows and other messages that it can post.
#pragma once

#include <span>

#include "core/agents/handlerTable.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/rows/postRow.h"

namespace rynd {

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

}  // namespace rynd
