// The poll loop: the only reader of every observation context. Initial thread.
#pragma once

#include <poll.h>

#include <cstddef>

#include "core/contexts.h"

namespace rynd {

constexpr size_t kTraceSlot = 30;            ///< the trace socket's listening descriptor
constexpr size_t kFixedSlots = 31;           ///< contexts and trace socket
constexpr size_t kFirstConnectionSlot = 31;  ///< accepted user-level connections, up to the end of the set
constexpr size_t kMaxConnections = 8;
constexpr size_t kAllSlots = kFixedSlots + kMaxConnections;

/// The poll set and what its slots mean. Borrows the set (of `capacity` slots, kAllSlots or only kFixedSlots) and the
/// contexts.
class PollLoop {
 public:
  PollLoop(pollfd *set, size_t capacity, const ContextTable &contexts)
      : set_(set), capacity_(capacity), contexts_(contexts) {}

  /// Serve every slot until a stop is requested or the loop cannot go on. The daemon's return code: 0 after a signal,
  /// -1 when poll failed, a positive status of a kernel context that did.
  int Run();

  /// Act on the returned events of all slots, once, in order, or up to a stop that arrives meanwhile. 0, or the
  /// positive status of a kernel context that failed.
  int ServeSlots();
  /// Live slots: kFixedSlots and one for each connection.
  size_t Count() const { return count_; }

 private:
  int ServeSlot(size_t *slot);
  int ServeKernelContext(size_t slot);
  void AcceptConnection();
  bool ServeConnection(size_t slot);
  bool CloseConnection(size_t slot);
  void Rearm(size_t slot);

  pollfd *const set_;
  const size_t capacity_;
  const ContextTable &contexts_;
  size_t count_ = kFixedSlots;
};

}  // namespace rynd
