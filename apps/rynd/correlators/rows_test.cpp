// Every row of every correlator, given to its handler: it posts its own event with all of its arguments, or nothing.

#include <cstring>

#include "correlators/hardware/hardwareCorrelators.h"
#include "correlators/network/networkCorrelators.h"
#include "correlators/storage/storageCorrelators.h"
#include "correlators/user/userCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

using Rows = std::span<const PostRow>;

struct Correlator {
  HandlerTable handlers;
  std::vector<Rows> rows;
};
std::vector<Correlator> Correlators() {
  return {{NetHandlers(), {NetPostRows(), NetFirewallConfigPostRows(), NetFirewallPortPostRows()}},
          {ApdHandlers(), {ApdPostRows()}},
          {ScsiHandlers(), {ScsiPostRows()}},
          {PsaStorHandlers(), {PsaStorPostRows()}},
          {HyfsHandlers(), {HyfsPostRows()}},
          {IscsiHandlers(), {IscsiPostRows()}},
          {VscsiHandlers(), {VscsiPostRows()}},
          {KvolHandlers(), {KvolPostRows()}},
          {BootDeviceHandlers(), {BootDevicePostRows()}},
          {HardwareHandlers(), {HardwarePostRows()}},
          {CpuHandlers(), {CpuPostRows()}},
          {MemtierHandlers(), {MemtierPostRows()}},
          {HcmHandlers(), {HcmPostRows()}},
          {SchedHandlers(), {SchedPostRows()}},
          {ClockHandlers(), {ClockPostRows()}},
          {UserWorldHandlers(), {UserWorldPostRows()}}};
}

/// Argument `i` of a row: a text or a number that shows which one it is, in any base. A report interval of 1 lets the
/// next row of the clock's pass.
Arguments SampleOf(const PostRow &row) {
  Arguments arguments;
  for (size_t i = 0; i < post_row::Count(row.fields.types); ++i) {
    arguments.push_back(row.fields.types[i] == ArgType::kStr ? Str("text" + std::to_string(i))
                                                             : Int(static_cast<int64_t>(i)));
  }
  return arguments;
}

/// True when `event` shows the sample's arguments in the row's order, one for each conversion of its message.
bool ShowsSample(const PostRow &row, const std::string &event) {
  size_t at = event.find(' ');
  size_t placeholder = 0;
  for (const char *conversion = strchr(row.message.format, '%'); conversion != nullptr && at != std::string::npos;
       conversion = strchr(conversion + 1, '%')) {
    const uint8_t argument = row.order[placeholder++];
    at = event.find((row.fields.types[argument] == ArgType::kStr ? "text" : "") + std::to_string(argument), at + 1);
  }
  return at != std::string::npos;
}

TEST(Rows, PostTheirOwnEventWithAllArgumentsOrNone) {
  PutHost("sysinfo/system/ntpclock/rynReportInterval", "0");

  ReadClockReportInterval();
  CapturedLog log;
  for (const Correlator &correlator : Correlators()) {
    for (const Rows rows : correlator.rows) {
      for (const PostRow &row : rows) {
        const Arguments arguments = SampleOf(row);
        for (size_t count = 0; count < arguments.size(); ++count) {
          EXPECT_EQ(
              EventsOf(correlator.handlers, row.id, {arguments.begin(), arguments.begin() + static_cast<long>(count)}),
              Events{})
              << row.id << " with " << count;
        }
        if (!arguments.empty()) {
          Arguments wrong = arguments;
          wrong.back() = row.fields.types[arguments.size() - 1] == ArgType::kStr ? Int(1) : Str("1");
          EXPECT_EQ(EventsOf(correlator.handlers, row.id, wrong), Events{}) << row.id;
        }
        const Events events = EventsOf(correlator.handlers, row.id, arguments);
        ASSERT_EQ(events.size(), 1u) << row.id;
        const std::string format = row.message.format + kEventMarker.size();
        EXPECT_TRUE(events[0].starts_with(format.substr(0, format.find(')')) + " ")) << row.id << ": " << events[0];
        EXPECT_TRUE(ShowsSample(row, events[0])) << events[0];
        log.Messages();  // makes room in its socket
      }
    }
  }
}

}  // namespace
}  // namespace rynd
