// What recordings come to when they are run again.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "testing/flight/recordedDaemon.h"
#include "testing/processState.h"

namespace testing_support {

/// Run what the daemons below `root` recorded again, with the tool `rynctl`, and a copy of it without names: both come
/// to what was recorded, each time anew, and to as many events.
inline void ExpectReplaysEqual(const TestRoot &root, const std::string &rynctl) {
  const std::string away = root / "/away.rec", replay = rynctl + " replay ";
  const auto end = [](const std::string &text) {
    return text.substr(text.size() - std::min<size_t>(text.size(), 3'000));
  };
  const Output replayed = RunShell(replay + FlightFolder(root));
  EXPECT_EQ(replayed.status, 0) << end(replayed.text);
  EXPECT_NE(replayed.text.find(", all as recorded."), std::string::npos) << end(replayed.text);
  EXPECT_EQ(RunShell(replay + FlightFolder(root)).text, replayed.text);
  EXPECT_EQ(RunShell(replay + FlightFolder(root) + " --redact " + away).text, "Written: " + away + "\n");
  const Output redacted = RunShell(replay + away);
  EXPECT_EQ(redacted.status, 0) << "without names\n" << end(redacted.text);
  ASSERT_FALSE(redacted.text.empty() || replayed.text.empty());
  EXPECT_EQ(Lines(redacted.text).back(), Lines(replayed.text).back());
}

}  // namespace testing_support
