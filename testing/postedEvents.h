// What tests of correlators share. Events and timers as they see them: the object files that compose events and run
// timers are replaced.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/agents/handlerTable.h"
#include "hosted/records/rawRecord.h"
#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace rynd {

using Events = std::vector<std::string>;
using testing_support::ClearHost;
using testing_support::HostPath;
using testing_support::ProcessRoot;
using testing_support::PutHost;
using testing_support::TakeActions;

/// What has been posted since the last call, oldest first: the event's name, a blank, its rendered text. An event whose
/// namespace is not its category's fails the test. Any thread.
Events TakeEvents();

/// The timers that have been registered, by identity. Not for threads.
struct FakeTimer {
  void (*callback)() = nullptr;
  uint32_t periodic = 0;
  int64_t intervalS = 0;  ///< 0: not armed
  unsigned armings = 0;
};
std::vector<FakeTimer> &Timers();

// Arguments of observations.
hosted::RawArgument Int(int64_t value);    ///< signed; 32 bits when it fits, else 64
hosted::RawArgument Long(uint64_t value);  ///< unsigned, 64 bits
inline constexpr auto &Str = hosted::Text;
inline constexpr auto &NullStr = hosted::NullText;
using Arguments = std::vector<hosted::RawArgument>;

/// Hand an observation to the handler of `id` in `table`, or to `defaultHandler`, as the runner does.
void Dispatch(HandlerTable table, Handler defaultHandler, const std::string &id, const Arguments &arguments,
              const std::string &message = "m");
/// The same; what it posted.
Events EventsOf(HandlerTable table, const std::string &id, const Arguments &arguments);

}  // namespace rynd
