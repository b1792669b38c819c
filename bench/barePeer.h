// What the benchmark and the bare program agree on.
// Arguments: "latency", "throughput" or "start" (for people; the lengths say what is done), or "unmatched", which
// passes on only records that are longer than kSentinel; the number of threads in all, the length of the event record
// (0: none), and the lengths of the log records of one observation.
#pragma once

namespace bench {

/// Sent to the log when every socket is open and every thread runs.
constexpr char kBareReady[] = "ready";

/// Bytes that a record which nobody wants has at most.
constexpr long kSentinel = 1000;

}  // namespace bench
