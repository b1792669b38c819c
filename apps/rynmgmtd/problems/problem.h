// What is wrong, or was: one problem of one subject. A plain value.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "catalog/catalog.h"

namespace mgmtd {

/// One problem of one subject, from the event that opened it to what ended it. An event about several names opens one
/// for each.
struct Problem {
  int64_t id = 0;           ///< of this problem, rising; people use the id of its first event
  int64_t change = 0;       ///< rises with each change of any problem: what has a higher one is news
  int64_t eventId = 0;      ///< the event that opened it
  int64_t lastEventId = 0;  ///< the last one that repeated it
  std::string name;         ///< of its events, such as "amb.problem.storage.apd.start"
  /// What it is about, by the names of the arguments, in the catalogue's order; empty: the host.
  std::vector<std::pair<std::string, std::string>> about;
  std::string subject;  ///< the same for people: "Production, hynic0"; "" for the host
  catalog::Severity severity = catalog::Severity::kInfo;
  std::string text;          ///< of the last event
  std::string hostUuid;      ///< of the host that it is wrong with
  int64_t firstUs = 0;       ///< time of the first event, microseconds since the epoch
  int64_t lastUs = 0;        ///< of the last one
  int64_t times = 0;         ///< events that told of it, 1 or more
  int64_t endedUs = 0;       ///< 0: it is open
  std::string endedBy;       ///< name of the event that ended it; "by hand: USER"; "forgotten: ..."; "" while open
  int64_t endedByEvent = 0;  ///< that event, or 0

  bool IsOpen() const { return endedUs == 0; }
};

}  // namespace mgmtd
