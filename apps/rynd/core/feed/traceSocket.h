// The listening side of the trace feed. Initial thread.
#pragma once

namespace rynd {

/// Make the socket that trace clients connect to, replacing what stands at its path. Its descriptor, or -1.
int OpenTraceSocket();

/// The descriptor that OpenTraceSocket() gave last, borrowed; -1 before.
int TraceListener();

/// Accept one trace client and have it served by a thread of its own. Failures are logged.
void AcceptTraceClient(int listenFd);

}  // namespace rynd
