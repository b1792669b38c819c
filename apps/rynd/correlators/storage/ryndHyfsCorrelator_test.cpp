#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/storageCorrelators.h"
#include "testing/postedEvents.h"

namespace rynd {
namespace {

/// `front`, a UUID's nine numbers, `rear`.
Arguments WithUuid(Arguments front, const Arguments &rear,
                   const std::vector<uint32_t> &numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9}) {
  for (const uint32_t number : numbers) front.push_back(Long(number));
  front.insert(front.end(), rear.begin(), rear.end());
  return front;
}

TEST(HyfsCorrelator, PutsAnyUuidIntoText) {
  CapturedLog log;
  const auto textOf = [](const std::vector<uint32_t> &numbers) {
    const Events events = EventsOf(HyfsHandlers(), "ryn.hyfs.heartbeat.timedout", WithUuid({}, {Str("v")}, numbers));
    return events.size() == 1 ? events[0].substr(events[0].find(' ') + 1) : "none";
  };
  EXPECT_EQ(textOf({UINT32_MAX, 0, 0xffff, 0xff, 0, 0x0a, 0xa0, 1, 0xff}), "ffffffff-00000000-ffff-ff000aa001ff v");
  EXPECT_EQ(textOf({0, UINT32_MAX, 0, 0, 0xff, 0, 0, 0, 0}), "00000000-ffffffff-0000-00ff00000000 v");
  for (uint32_t byte = 0; byte < 256; ++byte) {
    char text[64];
    snprintf(text, sizeof text, "00000001-00000002-0003-04050607%02x%02x v", 255 - byte, byte);
    EXPECT_EQ(textOf({1, 2, 3, 4, 5, 6, 7, 255 - byte, byte}), text);
    log.Messages();  // makes room in its socket
  }
  EXPECT_EQ(textOf({1, 2, 0x10000, 4, 5, 6, 7, 8, 9}), "none");
  EXPECT_EQ(textOf({1, 2, 3, 4, 5, 6, 7, 8, 256}), "none");
}

/// Hand an observation `id` to the handler of `handlerOf`.
void Mislead(const char *handlerOf, const char *id, const Arguments &arguments) {
  HandlerTable table;
  table[id] = HyfsHandlers()[handlerOf];
  Dispatch(table, IgnoreObservation, id, arguments);
}

TEST(HyfsDeathTest, AnIdThatAHandlerDoesNotKnowEndsTheDaemon) {
  EXPECT_DEATH(Mislead("ryn.hyfs.heartbeat.timedout", "ryn.hyfs.heartbeat.other", WithUuid({}, {Str("v")})),
               "NOT_REACHED apps/rynd/ryndHyfsCorrelator:149 ");
  EXPECT_DEATH(
      Mislead("ryn.hyfs.nfs.server.restored", "ryn.hyfs.nfs.server.lost", WithUuid({Str("1"), Str("2")}, {Str("3")})),
      "NOT_REACHED apps/rynd/ryndHyfsCorrelator:816 ");
}

}  // namespace
}  // namespace rynd
