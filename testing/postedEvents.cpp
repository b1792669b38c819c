// Stands in for post/ryndKprob.cpp and core/timerThread.cpp.
#include "testing/postedEvents.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "core/agents/runner.h"
#include "core/basics/timerThread.h"
#include "post/ryndKprob.h"

namespace rynd {
namespace {

std::mutex eventsMutex;  // guards the events; nothing nests in it
std::vector<std::string> events;

}  // namespace

void EventPost(uint32_t category, const char *format, ...) {
  const char *end = std::strchr(format, ')');
  ASSERT_NE(end, nullptr) << format;
  const std::string_view marked(format, static_cast<size_t>(end - format));
  ASSERT_TRUE(marked.starts_with(kEventMarker)) << format;
  std::string event(marked.substr(kEventMarker.size()));
  EXPECT_TRUE(event.starts_with(EventNamespace(category)) && category <= kClear) << format;
  char *text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  ASSERT_GE(vasprintf(&text, format, arguments), 0);
  va_end(arguments);
  event.append(" ").append(text + (end + 1 - format));
  free(text);
  const std::lock_guard lock(eventsMutex);
  events.push_back(std::move(event));
}

std::vector<std::string> TakeEvents() {
  const std::lock_guard lock(eventsMutex);
  return std::exchange(events, {});
}

std::vector<FakeTimer> &Timers() {
  static std::vector<FakeTimer> timers;
  return timers;
}

int RegisterTimer(const char * /*name*/, TimerCallback callback) {
  if (Timers().size() == TimerRegistry::kMaxTimers) return -1;
  Timers().push_back({callback});
  return static_cast<int>(Timers().size()) - 1;
}

int ArmTimer(int id, uint32_t periodic, int64_t intervalS, int64_t * /*dueS*/) {
  if (id < 0 || static_cast<size_t>(id) >= Timers().size()) return EINVAL;
  FakeTimer &timer = Timers()[static_cast<size_t>(id)];
  timer.periodic = periodic;
  timer.intervalS = intervalS;
  ++timer.armings;
  return 0;
}

hosted::RawArgument Int(int64_t value) {
  return hosted::Signed(value == static_cast<int32_t>(value) ? 4 : 8, value);
}

hosted::RawArgument Long(uint64_t value) {
  return hosted::Unsigned(8, value);
}

void Dispatch(HandlerTable table, Handler defaultHandler, const std::string &id, const Arguments &arguments,
              const std::string &message) {
  DispatchObservation(defaultHandler, &table, MakeObservation(hosted::RecordOf(id, arguments, message)).get());
}

std::vector<std::string> EventsOf(HandlerTable table, const std::string &id, const Arguments &arguments) {
  TakeEvents();
  Dispatch(
      std::move(table), [](Observation *) { ADD_FAILURE() << "no handler"; }, id, arguments);
  return TakeEvents();
}

}  // namespace rynd
