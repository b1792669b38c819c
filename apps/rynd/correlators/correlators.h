// What each correlator gives: its agent function, which runs on its own thread; its handlers; and the rows and other
// messages that it can post.
#pragma once

#include <span>

#include "core/agents.h"
#include "core/handlerTable.h"
#include "correlators/eventMessage.h"
#include "correlators/postRow.h"

namespace rynd {

void RyndNetCorrelator();
HandlerTable NetHandlers();
std::span<const PostRow> NetPostRows();
std::span<const PostRow> NetFirewallConfigPostRows();
std::span<const PostRow> NetFirewallPortPostRows();
std::span<const EventMessage> NetMessages();

void RyndScsiCorrelator();
HandlerTable ScsiHandlers();
std::span<const PostRow> ScsiPostRows();
std::span<const EventMessage> ScsiMessages();

void RyndPsaStorCorrelator();
HandlerTable PsaStorHandlers();
std::span<const PostRow> PsaStorPostRows();
std::span<const EventMessage> PsaStorMessages();

/// What the SCSI and the pluggable storage correlators both post.
std::span<const EventMessage> StoragePathMessages();

void RyndApdCorrelator();
HandlerTable ApdHandlers();
std::span<const PostRow> ApdPostRows();

void RyndIscsiCorrelator();
HandlerTable IscsiHandlers();
std::span<const PostRow> IscsiPostRows();
std::span<const EventMessage> IscsiMessages();

void RyndHyfsCorrelator();
HandlerTable HyfsHandlers();
std::span<const PostRow> HyfsPostRows();
std::span<const EventMessage> HyfsMessages();

void RyndUserLevelCorrelator();
HandlerTable UserLevelHandlers();
std::span<const EventMessage> UserLevelMessages();

void RyndHwCorrelator();
HandlerTable HardwareHandlers();
std::span<const PostRow> HardwarePostRows();

void RyndCpuCorrelator();
HandlerTable CpuHandlers();
std::span<const PostRow> CpuPostRows();
std::span<const EventMessage> CpuMessages();

void RyndUserWorldCorrelator();
HandlerTable UserWorldHandlers();
std::span<const PostRow> UserWorldPostRows();
std::span<const EventMessage> UserWorldMessages();

void RyndSwapCorrelator();
HandlerTable SwapHandlers();
std::span<const EventMessage> SwapMessages();

void RyndMemtierCorrelator();
HandlerTable MemtierHandlers();
std::span<const PostRow> MemtierPostRows();

void RyndVmCorrelator();
HandlerTable VmHandlers();
std::span<const PostRow> VmPostRows();

void RyndGenericCorrelator();
HandlerTable GenericHandlers();
std::span<const EventMessage> GenericMessages();

void RyndMigrateCorrelator();
HandlerTable MigrateHandlers();
std::span<const EventMessage> MigrateMessages();

void RyndPageRetireCorrelator();
HandlerTable PageRetireHandlers();
std::span<const EventMessage> PageRetireMessages();

void RyndVelfsCorrelator();
HandlerTable VelfsHandlers();
/// Reports what velfs has no handler for.
Handler VelfsDefaultHandler();
std::span<const EventMessage> VelfsMessages();

void RyndVfatCorrelator();
HandlerTable VfatHandlers();
std::span<const EventMessage> VfatMessages();

void RyndClockCorrelator();
HandlerTable ClockHandlers();
void LogNoClockCorrelator(Observation *observation);  ///< its default handler
void ReadClockReportInterval();                       ///< part of its start
std::span<const PostRow> ClockPostRows();

void RyndSchedCorrelator();
HandlerTable SchedHandlers();
std::span<const PostRow> SchedPostRows();

void RyndVscsiCorrelator();
HandlerTable VscsiHandlers();
std::span<const PostRow> VscsiPostRows();
std::span<const EventMessage> VscsiMessages();

void RyndFabraCorrelator();

void RyndHcmCorrelator();
HandlerTable HcmHandlers();
std::span<const PostRow> HcmPostRows();

void RyndKvolCorrelator();
HandlerTable KvolHandlers();
std::span<const PostRow> KvolPostRows();

void RyndBootDeviceCorrelator();
HandlerTable BootDeviceHandlers();
std::span<const PostRow> BootDevicePostRows();

/// The agents in the order in which they start.
std::span<const AgentFunction> AgentTable();

}  // namespace rynd
