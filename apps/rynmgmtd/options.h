// The agent's command line.
#pragma once

#include <optional>
#include <string>

#include "mgmtd/http/httpServer.h"
#include "mgmtd/sinks/sinks.h"
#include "mgmtd/store/writer.h"

namespace mgmtd {

/// What the command line asks for; paths of sockets and the store follow from the root.
struct Options {
  int64_t retentionDays = WriterOptions{}.retentionDays;
  int64_t retentionBytes = WriterOptions{}.retentionBytes;
  HttpOptions http;  ///< no address: no page
  SinkOptions sinks;
};

/// Read the command line. Nothing to go on, or the exit status: 0 after --help or --version, which are printed; 2 after
/// a mistake, which is told on standard error. With --root, CORVANE_ROOT is set: before anything asks for a path.
std::optional<int> ParseOptions(int argc, char **argv, Options *options);

/// "512M", "1G", "1.5 GiB", "1000000": bytes, at least 32 MiB. Nothing when it is no size.
std::optional<int64_t> ParseSize(const std::string &text);

}  // namespace mgmtd
