// Records whole, damaged in one place, cut at every length, and damaged at random.
#include "eventRecord/eventDecoder.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "correlators/catalog.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/testEvent.h"

namespace rynctl {
namespace {

DecodedEvent Decode(const std::vector<std::byte> &bytes) {
  return DecodeEvent(bytes.data(), bytes.size());
}

bool Tells(const DecodedEvent &event, const std::string &part) {
  return std::ranges::any_of(event.problems,
                             [&](const auto &problem) { return problem.find(part) != std::string::npos; });
}

/// Nothing that reaches a terminal may steer it, and JSON must be JSON.
void ExpectPrintable(const DecodedEvent &event) {
  const std::string line = EventLine(event, {});
  for (const char c : line) EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) << line;
  EXPECT_EQ(EscapeForTerminal(line), line);
  EXPECT_FALSE(nlohmann::json::parse(EventJson(event), nullptr, false).is_discarded());
}

TEST(EventDecoder, ReadsAWholeRecord) {
  const std::vector<std::byte> bytes = EventBytes(kApdStart, {"naa.6001"});
  std::vector<std::byte> padded = bytes;
  padded.resize(bytes.size() + 100);  // a sender may send zero bytes behind its record
  for (const std::vector<std::byte> &sent : {bytes, padded}) {
    const DecodedEvent event = Decode(sent);
    EXPECT_EQ(event.problems, std::vector<std::string>());
    EXPECT_EQ(event.microseconds, kTestTime);
    EXPECT_EQ(event.sequence, 7U);
    EXPECT_EQ(event.hostUuid, kTestUuid);
    EXPECT_EQ(event.category, rynd::kProblem);
    EXPECT_EQ(event.name, kApdStart);
    EXPECT_EQ(event.text, "Device or filesystem with identifier [naa.6001] has entered the All Paths Down state.");
    const auto json = nlohmann::json::parse(EventJson(event));
    EXPECT_EQ(json["time"], "2023-11-14T22:13:20.123456Z");
    EXPECT_EQ(json["category"], "problem");
    EXPECT_EQ(json["args"], nlohmann::json({"naa.6001"}));
    EXPECT_FALSE(json.contains("problems"));
  }
}

TEST(EventDecoder, SaysWhatIsWrong) {
  const std::vector<std::byte> whole = EventBytes(kApdStart, {"naa.6001"});
  const size_t nameLength = sizeof kApdStart, area = rynd::kEventNameOffset + nameLength;
  const struct {
    size_t offset;
    uint64_t value;
    size_t width;
    const char *told;
  } damages[] = {
      {54, 1, 2, "reserved"},
      {56, 10, 4, "shorter"},
      {56, 5000, 4, "truncated: "},
      {60, 2, 4, "too large"},
      {60, 0xffffffff, 4, "too large"},
      {60, 0, 4, "do not suit"},
      {64, 0, 4, "name length 0"},
      {64, 0xffffffff, 4, "name length 4294967295"},
      {64, nameLength - 1, 4, "not terminated"},
      {64, nameLength + 4, 4, "ends before"},
      {68, 'x', 1, "catalogue"},
      {area, 9, 4, "argument 1"},
      {area, 1, 4, "do not suit"},
      {area + 8, 1'000'000, 8, "argument 1"},
      {area + 8, UINT64_MAX, 8, "argument 1"},
      {whole.size() - 1, 1, 1, "not zero"},
  };
  for (const auto &damage : damages) {
    std::vector<std::byte> bytes = whole;
    PutNumber(&bytes, damage.offset, damage.value, damage.width);
    const DecodedEvent event = Decode(bytes);
    EXPECT_TRUE(Tells(event, damage.told)) << damage.told << ": " << EventLine(event, {});
  }
}

TEST(EventDecoder, ShowsTheArgumentsOfAnUnknownName) {
  std::vector<std::byte> bytes = EventBytes("amb.clear.of.tomorrow", {"say \"hi\"\n", "b"});
  const size_t area = rynd::kEventNameOffset + sizeof "amb.clear.of.tomorrow";
  const MsgFmtArg number{MsgFmtKind::kSigned, 4, static_cast<uint64_t>(-3)};
  std::memcpy(bytes.data() + area + sizeof number, &number, sizeof number);
  const DecodedEvent event = Decode(bytes);
  EXPECT_EQ(event.text, R"(("say \"hi\"\n", -3))");
  EXPECT_EQ(event.category, rynd::kClear);
}

TEST(EventDecoder, TakesARecordCutAtAnyLength) {
  const std::vector<std::byte> whole = EventBytes(kApdStart, {"naa.6001"});
  for (size_t length = 0; length < whole.size(); ++length) {
    // A copy of the exact size, so that a sanitizer sees a read behind it.
    const std::vector<std::byte> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    const DecodedEvent event = Decode(cut);
    EXPECT_TRUE(Tells(event, "truncated: " + std::to_string(length))) << length;
    EXPECT_EQ(event.microseconds, length < 8 ? 0 : kTestTime);
    EXPECT_EQ(event.name == kApdStart, length >= rynd::kEventNameOffset + sizeof kApdStart - 1) << length;
    ExpectPrintable(event);
  }
}

/// A hostile sender must not reach the terminal through an event's line.
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
