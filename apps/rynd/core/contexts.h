// The table of observation contexts: 29 of the kernel and the user-level one. Initial thread.
#pragma once

#include <poll.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/ryn.h"

namespace rynd {

constexpr size_t kContexts = kRynAsyncContexts + 1;
constexpr size_t kUserContextSlot = kRynUserContext;  ///< the user context's place in the table and in the poll set

/// One context: its id and its handle, null while it is not open.
struct Context {
  uint32_t id;
  RynLibHandle handle;
};
using ContextTable = std::array<Context, kContexts>;

/// The table before anything is open: ids 0 to 29, null handles.
ContextTable MakeContextTable();

/// Open every context, in order, and put its descriptor into its slot of `set`, to be polled for input. 0, or the
/// library's status for the first that fails; those before it stay open.
int OpenContexts(ContextTable *contexts, pollfd *set);

/// Close every open context; a failure is logged.
void CloseContexts(const ContextTable &contexts);

}  // namespace rynd
