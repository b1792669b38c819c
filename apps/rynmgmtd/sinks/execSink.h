// Events as the standard input of a program.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "mgmtd/sinks/sink.h"

namespace mgmtd {

/// "" when only root decides what `path` is: a plain file that root owns and may execute, which nobody else may write,
/// below folders of which the same holds. Else why not, naming what is wrong. `path` is absolute.
std::string CheckProgram(const std::string &path);

/// Runs a program for each event, one at a time, with the event's JSON on standard input and nothing of this program's
/// environment. Exit status 0: done. 75: call again later. Any other end, or none within `limit`, when it is killed
/// with its process group: told in the log, and on to the next event.
class ExecSink : public EventSink {
 public:
  ExecSink(std::string program, std::chrono::milliseconds limit, const std::string &storePath, Feed *feed,
           Writer *writer);

 protected:
  Outcome Pass(const StoredEvent &event, std::string *error) override;

 private:
  Outcome Await(pid_t child, std::string *error);

  const std::string program_;
  const std::chrono::milliseconds limit_;
};

}  // namespace mgmtd
