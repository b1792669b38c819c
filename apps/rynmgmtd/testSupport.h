// What the tests of the management agent share: events and problems of one kind.
#pragma once

#include <string>

#include "catalog/catalog.h"
#include "mgmtd/store/feed.h"
#include "testing/testRoot.h"

namespace mgmtd {

constexpr char kApd[] = "amb.problem.storage.apd.start";
constexpr int64_t kSomeTime = 1'700'000'000'000'000;  ///< microseconds

inline StoredEvent MakeEvent(int64_t id, const std::string &text = "text") {
  StoredEvent event;
  event.id = id;
  event.timeUs = event.receivedUs = kSomeTime + id;
  event.name = kApd;
  event.category = "problem";
  event.severity = "error";
  event.subjects = {"naa.1", "naa.2"};
  event.text = text;
  event.argumentsJson = R"([{"name":"device","value":"naa.1"},{"name":"lost","value":null},{"name":"x-y","value":7}])";
  return event;
}

inline Problem MakeProblem(int64_t change, int64_t id, const std::string &subject, bool ended = false,
                           catalog::Severity severity = catalog::Severity::kError) {
  Problem problem;
  problem.id = problem.eventId = problem.lastEventId = id;
  problem.change = change;
  problem.name = kApd;
  problem.subject = subject;
  problem.severity = severity;
  problem.text = "about " + subject;
  problem.firstUs = problem.lastUs = kSomeTime + id;
  problem.times = 1;
  if (ended) problem.endedUs = problem.firstUs + 1'000'000;
  return problem;
}

}  // namespace mgmtd
