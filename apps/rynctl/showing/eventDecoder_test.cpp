// Records whole, damaged in one place, cut at every length, and damaged at random.
#include "eventRecord/eventDecoder.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

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
  for (const std::string &problem : event.problems) {
    if (problem.find(part) != std::string::npos) return true;
  }
  return false;
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

TEST(EventDecoder, ReadsEveryMessageOfTheCatalogueByItsName) {
  for (const rynd::CatalogMessage &message : rynd::Catalog()) {
    const DecodedEvent event = Decode(EventBytes(std::string(message.name), {}));
    EXPECT_EQ(event.category, message.category) << message.name;
    EXPECT_FALSE(Tells(event, "catalogue")) << message.name;
  }
}

TEST(EventDecoder, SaysWhatIsWrong) {
  const std::vector<std::byte> whole = EventBytes(kApdStart, {"naa.6001"});
  const size_t nameLength = sizeof kApdStart;
  const size_t area = rynd::kEventNameOffset + nameLength;
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

TEST(EventDecoder, TakesAnyDamage) {
  std::mt19937 random(1);
  const std::vector<std::byte> whole = EventBytes(kApdStart, {"naa.6001", "second"});
  for (int round = 0; round < 5000; ++round) {
    std::vector<std::byte> bytes = whole;
    bytes.resize(random() % (whole.size() + 40));
    for (unsigned hits = random() % 8; hits > 0 && !bytes.empty(); --hits) {
      bytes[random() % bytes.size()] = static_cast<std::byte>(random() % 4 == 0 ? 0xff : random());
    }
    ExpectPrintable(Decode(bytes));
  }
}

}  // namespace
}  // namespace rynctl
