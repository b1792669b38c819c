// The listening side of the trace feed. Initial thread.
#pragma once

namespace rynd {

/// Make the socket that trace clients connect to, replacing what stands at its path. Its descriptor, or -1.
int OpenTraceSocket();

/// The descriptor that OpenTraceSocket() gave last, borrowed; -1 before.
int TraceListener();

/// Close the socket and remove its file, unless another stands in its place; nothing when it is not open. To be called
/// while the contexts are still open, which keep a second daemon from making its own.
void CloseTraceSocket();

/// Accept one trace client and have it served by a thread of its own. Failures are logged.
void AcceptTraceClient(int listenFd);

}  // namespace rynd
