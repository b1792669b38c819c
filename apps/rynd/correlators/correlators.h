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

void RyndHwCorrelator();
HandlerTable HardwareHandlers();
std::span<const PostRow> HardwarePostRows();

void RyndCpuCorrelator();
HandlerTable CpuHandlers();
std::span<const PostRow> CpuPostRows();
std::span<const EventMessage> CpuMessages();

void RyndMemtierCorrelator();
HandlerTable MemtierHandlers();
std::span<const PostRow> MemtierPostRows();

void RyndPageRetireCorrelator();
HandlerTable PageRetireHandlers();
std::span<const EventMessage> PageRetireMessages();

void RyndClockCorrelator();
HandlerTable ClockHandlers();
void LogNoClockCorrelator(Observation *observation);  ///< its default handler
void ReadClockReportInterval();                       ///< part of its start
std::span<const PostRow> ClockPostRows();

void RyndSchedCorrelator();
HandlerTable SchedHandlers();
std::span<const PostRow> SchedPostRows();

void RyndFabraCorrelator();

void RyndHcmCorrelator();
HandlerTable HcmHandlers();
std::span<const PostRow> HcmPostRows();

/// The agents in the order in which they start.
std::span<const AgentFunction> AgentTable();

}  // namespace rynd
