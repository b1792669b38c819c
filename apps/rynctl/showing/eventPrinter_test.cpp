// A hostile sender must not reach the terminal through an event's line.
#include "rynctl/showing/eventPrinter.h"

#include <gtest/gtest.h>

namespace rynctl {
namespace {

TEST(EventLine, ColorsTheCategoryAndNothingOfTheSender) {
  DecodedEvent event;
  event.category = rynd::kClear;
  event.name = "amb.clear.\x1b[31m";
  event.text = "\x1b[2J";
  event.hostUuid = "\xff";
  const std::string line = EventLine(event, {.color = true});
  EXPECT_NE(line.find("  \x1b[32mCLEAR\x1b[0m  "), std::string::npos) << line;
  EXPECT_NE(line.find("amb.clear.\\x1b[31m  \\x1b[2J"), std::string::npos) << line;
  // What is no UTF-8 is replaced, and what JSON would let through to the terminal is written out.
  event.text += "\x7f\xc2\x9b\xe2\x80\xae\xe2\x81\xa9\xc3\xa9";
  const std::string json = EventJson(event);
  EXPECT_NE(json.find("\xef\xbf\xbd"), std::string::npos);
  EXPECT_NE(json.find("\\u001b[2J\\u007f\\u009b\\u202e\\u2069\xc3\xa9\""), std::string::npos) << json;
  event.problems = {"one", "two\n"};
  EXPECT_NE(EventLine(event, {}).find("  [one; two\\n]"), std::string::npos);
}

}  // namespace
}  // namespace rynctl
