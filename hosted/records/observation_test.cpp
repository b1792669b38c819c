#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "hosted/testSupport.h"
#include "platform/ryn.h"

namespace hosted {
namespace {

TEST(Observation, GivesItsPartsAsTheyWereSent) {
  const ObservationPtr observation = MakeObservation(EncodeRecord({7, 123'456'789'012, "ryn.a.b", "two\nlines", {}}));
  const char *id = nullptr;
  char *message = nullptr;
  char unused = 0;
  char *second = &unused;
  uint64_t microseconds = 0;
  EXPECT_EQ(Ryn_GetID(observation.get(), &id), 0);
  EXPECT_STREQ(id, "ryn.a.b");
  EXPECT_EQ(Ryn_GetMsg(observation.get(), &message, &second), 0);
  EXPECT_STREQ(message, "two\nlines");
  EXPECT_EQ(second, nullptr);
  std::free(message);
  EXPECT_EQ(Ryn_GetTimestamp(observation.get(), &microseconds), 0);
  EXPECT_EQ(microseconds, 123'456'789'012u);
}

TEST(Observation, LeavesTheBytesOfABadRecordToTheCaller) {
  std::vector<std::byte> record = RecordOf("ryn.a");
  record[20] = std::byte{9};
  Observation *observation = nullptr;
  EXPECT_EQ(Ryn_MakeRyn(record.data(), record.size(), &observation), EINVAL);
  EXPECT_EQ(observation, nullptr);
  Ryn_Free(observation);
}

TEST(Observation, AnswersByKindAndIndex) {
  const ObservationPtr observation = MakeObservation(RecordOf("ryn.a", {Text("text"), Signed(8, -5), NullText()}));
  const char *text = "before";
  int32_t number = 1;
  EXPECT_EQ(Ryn_GetStringArg(observation.get(), 0, &text), 0);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(Ryn_GetStringArg(observation.get(), 1, &text), kRynWrongKind);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(Ryn_GetStringArg(observation.get(), 2, &text), 0);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(Ryn_GetStringArg(observation.get(), 3, &text), kRynNoArgument);
  EXPECT_EQ(Ryn_GetIntArg(observation.get(), 1, &number), 0);
  EXPECT_EQ(number, -5);
  EXPECT_EQ(Ryn_GetIntArg(observation.get(), 2, &number), kRynWrongKind);
  EXPECT_EQ(Ryn_GetIntArg(observation.get(), UINT32_MAX, &number), kRynNoArgument);
  RynArg argument{};
  EXPECT_EQ(Ryn_GetArg(observation.get(), 1, &argument), 0);
  EXPECT_EQ(argument.kind, RynArg::Kind::kSigned);
  EXPECT_EQ(static_cast<int64_t>(argument.bits), -5);
}

TEST(Observation, FitsAnIntegerByItsValueAndEitherSign) {
  constexpr int kNo = kRynOutOfRange;
  const struct {
    int statuses[4];  ///< for 8, 16, 32 and 64 bits
    std::vector<RawArgument> arguments;
  } rows[] = {
      {{0, 0, 0, 0}, {Signed(8, 255), Unsigned(1, 255), Signed(1, -128)}},
      {{kNo, 0, 0, 0}, {Signed(2, 256), Signed(2, -129), Unsigned(8, 65535), Signed(4, -32768)}},
      {{kNo, kNo, 0, 0}, {Signed(4, -32769), Unsigned(4, 65536), Unsigned(8, UINT32_MAX), Signed(8, INT32_MIN)}},
      {{kNo, kNo, kNo, 0},
       {Unsigned(8, uint64_t{UINT32_MAX} + 1), Signed(8, int64_t{INT32_MIN} - 1), Signed(8, INT64_MIN),
        Unsigned(8, UINT64_MAX)}},
  };
  for (const auto &[statuses, arguments] : rows) {
    for (const RawArgument &argument : arguments) {
      const ObservationPtr observation = MakeObservation(RecordOf("ryn.a", {argument}));
      const auto bits = static_cast<int64_t>(argument.bits);
      SCOPED_TRACE(bits);
      int8_t byte = 1;
      uint16_t half = 1;
      int32_t word = 1, same = 1;
      uint64_t wide = 1;
      EXPECT_EQ(Ryn_GetArgs(observation.get(), "%hhd", &byte), statuses[0]);
      EXPECT_EQ(Ryn_GetArgs(observation.get(), "%hx", &half), statuses[1]);
      EXPECT_EQ(Ryn_GetArgs(observation.get(), "%i", &word), statuses[2]);
      EXPECT_EQ(Ryn_GetIntArg(observation.get(), 0, &same), statuses[2]);
      EXPECT_EQ(Ryn_GetArgs(observation.get(), "%llu", &wide), statuses[3]);
      // What does not fit leaves the output alone.
      EXPECT_EQ(byte, statuses[0] == 0 ? static_cast<int8_t>(bits) : 1);
      EXPECT_EQ(half, statuses[1] == 0 ? static_cast<uint16_t>(bits) : 1);
      EXPECT_EQ(word, statuses[2] == 0 ? static_cast<int32_t>(bits) : 1);
      EXPECT_EQ(same, word);
      EXPECT_EQ(wide, argument.bits);
    }
  }
}

TEST(Observation, WalksAFormat) {
  const ObservationPtr observation =
      MakeObservation(RecordOf("ryn.a", {Text("a"), Unsigned(4, 17), Signed(8, -1), NullText(), Text("b")}));
  const char *first = nullptr, *second = "x", *third = nullptr;
  uint32_t number = 0;
  int64_t wide = 0;
  EXPECT_EQ(
      Ryn_GetArgs(observation.get(), "[%p] 100%% %#08.3x of %-+ ld, %s%s", &first, &number, &wide, &second, &third), 0);
  EXPECT_STREQ(first, "a");
  EXPECT_EQ(number, 17u);
  EXPECT_EQ(wide, -1);
  EXPECT_EQ(second, nullptr);
  EXPECT_STREQ(third, "b");
  // By number, and then on from where the unnumbered ones were.
  EXPECT_EQ(Ryn_GetArgs(observation.get(), "%2$u %5$p %s", &number, &second, &first), 0);
  EXPECT_EQ(number, 17u);
  EXPECT_STREQ(second, "b");
  EXPECT_STREQ(first, "a");
  for (const char *const length : {"%3$ld", "%3$lld", "%3$zd", "%3$jd", "%3$td"}) {
    wide = 0;
    EXPECT_EQ(Ryn_GetArgs(observation.get(), length, &wide), 0) << length;
    EXPECT_EQ(wide, -1) << length;
  }
}

TEST(Observation, StopsAtTheFirstFailure) {
  const ObservationPtr observation = MakeObservation(RecordOf("ryn.a", {Signed(4, 1), Signed(4, 2)}));
  // The first conversion succeeds, the second fails and the third is never reached.
  const char *const kinds[] = {"%d %s %d",   "%d %p %d",   "%d %c %d",  "%d %f %d",    "%d %*d %d",
                               "%d %.*d %d", "%d %0$d %d", "%d %Ld %d", "%d %hs %d",   "%d %",
                               "%d %l",      "%d %2$",     "%d %-0.",   "%d \xff%\xff"};
  std::vector<std::pair<const char *, int>> rows = {{"%d %3$d %d", kRynNoArgument},
                                                    {"%d %99999999999999$d %d", kRynNoArgument}};
  for (const char *format : kinds) rows.emplace_back(format, kRynWrongKind);
  for (const auto &[format, status] : rows) {
    int32_t first = 0, second = -7, third = -7;
    EXPECT_EQ(Ryn_GetArgs(observation.get(), format, &first, &second, &third), status) << format;
    EXPECT_EQ(first, 1) << format;
    EXPECT_EQ(second, -7) << format;
    EXPECT_EQ(third, -7) << format;
  }
  int32_t one = 0;
  EXPECT_EQ(Ryn_GetArgs(observation.get(), "%d", &one), 0);  // arguments beyond the format's are ignored
  EXPECT_EQ(Ryn_GetArgs(observation.get(), ""), 0);
}

TEST(Observation, ComparesIdsWithOrWithoutTheirFirstWord) {
  const std::tuple<const char *, const char *, bool> rows[] = {
      {"ryn.a.b", "ryn.a.b", true}, {"ryn.a.b", "a.b", true}, {"a.b", "ryn.a.b", false}, {"ryn.a.b.c", "a.b", false},
      {"rynxa.b", "a.b", false},    {nullptr, "a", false},    {"a", nullptr, false},     {nullptr, nullptr, false}};
  for (const auto &[id, other, same] : rows) EXPECT_EQ(Ryn_IsID(id, other), same) << (id == nullptr ? "null" : id);
}

}  // namespace
}  // namespace hosted
