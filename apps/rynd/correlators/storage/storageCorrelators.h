// The correlators of storage: the agent function of each, which runs on its own thread, its handlers, and the rows
// and other messages that it can post.
#pragma once

#include <span>

#include "core/agents/handlerTable.h"
#include "correlators/rows/eventMessage.h"
#include "correlators/rows/postRow.h"

namespace rynd {

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

void RyndSwapCorrelator();
HandlerTable SwapHandlers();
std::span<const EventMessage> SwapMessages();

void RyndVelfsCorrelator();
HandlerTable VelfsHandlers();
/// Reports what velfs has no handler for.
Handler VelfsDefaultHandler();
std::span<const EventMessage> VelfsMessages();

void RyndVfatCorrelator();
HandlerTable VfatHandlers();
std::span<const EventMessage> VfatMessages();

void RyndVscsiCorrelator();
HandlerTable VscsiHandlers();
std::span<const PostRow> VscsiPostRows();
std::span<const EventMessage> VscsiMessages();

void RyndKvolCorrelator();
HandlerTable KvolHandlers();
std::span<const PostRow> KvolPostRows();

void RyndBootDeviceCorrelator();
HandlerTable BootDeviceHandlers();
std::span<const PostRow> BootDevicePostRows();

}  // namespace rynd
