// The correlators of the processors, memory, clock and other hardware: the agent function of each, which runs on its
// own thread, its handlers, and the rows and other messages that it can post.
#pragma once

#include <span>

#include "core/agents/handlerTable.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/rows/postRow.h"

namespace rynd {

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

}  // namespace rynd
