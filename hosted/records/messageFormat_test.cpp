#include "platform/messageFormat.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "hosted/records/eventArguments.h"
#include "hosted/records/littleEndian.h"

namespace hosted {
namespace {

const char *volatile nothing = nullptr;  ///< hidden from the compiler, which would warn of it

/// The outcome of serialising into `room` bytes.
struct Serialized {
  int error = 0;
  std::vector<std::byte> area;  ///< cut to what was used
  uint32_t count = 0;
};

[[gnu::format(printf, 2, 3)]] Serialized Serialize(size_t room, const char *format, ...) {
  Serialized out;
  out.area.resize(room);
  size_t used = 0;
  va_list arguments;
  va_start(arguments, format);
  out.error = MsgFmt_Serialize(out.area.data(), room, format, arguments, &used, &out.count);
  va_end(arguments);
  if (out.error == 0) out.area.resize(used);
  return out;
}

/// The text by MsgFmt_Format and by RenderEvent from the offsets, which must agree.
std::string RenderBoth(const char *format, Serialized *out) {
  EXPECT_EQ(out->error, 0) << format;
  char *direct = MsgFmt_Format(format, out->area.data(), out->count);
  const std::string text = direct == nullptr ? "null" : direct;
  std::free(direct);
  MsgFmt_PointersToOffsets(out->area.data(), out->count);
  std::string rendered = "before";
  EXPECT_TRUE(RenderEvent(format, out->area.data(), out->area.size(), out->count, &rendered)) << format;
  EXPECT_EQ(rendered, text) << format;
  return text;
}

/// Compare with what the C library makes of the same format and arguments.
#define EXPECT_AS_PRINTF(format, ...)                                            \
  do {                                                                           \
    char expected[600];                                                          \
    std::snprintf(expected, sizeof expected, format __VA_OPT__(, ) __VA_ARGS__); \
    Serialized out = Serialize(2000, format __VA_OPT__(, ) __VA_ARGS__);         \
    EXPECT_EQ(RenderBoth(format, &out), expected);                               \
  } while (false)

TEST(MessageFormat, RendersIntegersAsPrintfDoes) {
  for (const int number : {0, 1, -1, 42, INT_MAX, INT_MIN, 0x1234abcd, 200}) {
    const auto bits = static_cast<unsigned>(number);
    EXPECT_AS_PRINTF("%d|%i|%5d|%-5d|%05d|%+d|% d|%+05d|%-+5d|", number, number, number, number, number, number, number,
                     number, number);
    EXPECT_AS_PRINTF("%.0d|%.d|%.3d|%8.3d|%-8.3d|%+.12d|", number, number, number, number, number, number);
    EXPECT_AS_PRINTF("%u|%x|%X|%o|%#x|%#X|%#o|%08x|%#010x|%-10x|", bits, bits, bits, bits, bits, bits, bits, bits, bits,
                     bits);
    EXPECT_AS_PRINTF("%.0x|%#.0x|%#.0o|%#.4x|%12.4o|%#12.4X|%-#12x|%-#5o|", bits, bits, bits, bits, bits, bits, bits,
                     bits);
    EXPECT_AS_PRINTF("%hhd|%hhu|%02hhx|%hd|%hu|%04hx|%hho|", static_cast<signed char>(number),
                     static_cast<unsigned char>(number), static_cast<unsigned char>(number), static_cast<short>(number),
                     static_cast<unsigned short>(number), static_cast<unsigned short>(number),
                     static_cast<unsigned char>(number));
    EXPECT_AS_PRINTF("%*d|%-*d|%.*d|%*.*d|%*d|%.*d", 9, number, 9, number, 4, number, 9, 4, number, -9, number, -1,
                     number);
  }
  for (const long number : {0L, -1L, LONG_MAX, LONG_MIN, 0x123456789abcdefL}) {
    const auto bits = static_cast<unsigned long>(number);
    EXPECT_AS_PRINTF("%ld|%lu|%lx|%#lx|%lo|%25ld|%025ld", number, bits, bits, bits, bits, number, number);
    EXPECT_AS_PRINTF("%lld|%llu|%zu|%zd|%jd|%tx", static_cast<long long>(number), static_cast<unsigned long long>(bits),
                     size_t{bits}, static_cast<ssize_t>(number), static_cast<intmax_t>(number), bits);
  }
}

TEST(MessageFormat, RendersTextsAsPrintfDoes) {
  for (const char *text : {"", "a", "naa.600508b1001c"}) {
    EXPECT_AS_PRINTF("[%s] %8s|%-8s|%.3s|%8.3s|%-8.0s|%.s|100%%", text, text, text, text, text, text, text);
    EXPECT_AS_PRINTF("%*s|%-*s|%.*s|%*.*s|%.*s", 5, text, 5, text, 2, text, -6, 2, text, -1, text);
  }
  int object = 0;
  EXPECT_AS_PRINTF("%p %20p %-20p|%c%3c%-3c|plain", static_cast<void *>(&object), static_cast<void *>(&object),
                   static_cast<void *>(nullptr), 'a', '%', '\xc8');
  EXPECT_AS_PRINTF("%% only %%");
  Serialized null = Serialize(100, "%s|%8s|%.2s", nothing, nothing, nothing);
  EXPECT_EQ(RenderBoth("%s|%8s|%.2s", &null), "(null)|  (null)|(null)");
}

TEST(MessageFormat, SerialisesAsAgreed) {
  Serialized out = Serialize(1000, "%s %*d %lu %s %hhd", "ab", 7, -2, 5UL, nothing, static_cast<signed char>(-1));
  ASSERT_EQ(out.error, 0);
  MsgFmt_PointersToOffsets(out.area.data(), out.count);
  const MsgFmtArg expected[] = {{MsgFmtKind::kString, 3, 6 * 16},
                                {MsgFmtKind::kSigned, 4, 7},
                                {MsgFmtKind::kSigned, 4, static_cast<uint64_t>(-2)},
                                {MsgFmtKind::kUnsigned, 8, 5},
                                {MsgFmtKind::kNullString, 0, 0},
                                {MsgFmtKind::kSigned, 4, static_cast<uint64_t>(-1)}};
  ASSERT_EQ(out.count, std::size(expected));
  ASSERT_EQ(out.area.size(), sizeof expected + 3);
  EXPECT_EQ(std::memcmp(out.area.data(), expected, sizeof expected), 0);
  EXPECT_STREQ(reinterpret_cast<const char *>(out.area.data() + sizeof expected), "ab");
}

TEST(MessageFormat, NeedsExactlyTheRoomItUses) {
  const char unterminated[] = {'a', 'b', 'c'};
  for (size_t room = 0; room < 60; ++room) {
    const Serialized out = Serialize(room, "%.3s %d %s", unterminated, 1, "x");
    EXPECT_EQ(out.error, room < 48 + 4 + 2 ? ENOSPC : 0) << room;
  }
  EXPECT_EQ(Serialize(0, "no arguments").error, 0);
}

TEST(MessageFormat, RefusesOtherConversions) {
  const char *const formats[] = {"%f", "%n", "%", "%d %", "%5", "%l", "%Ld", "%ls", "%lc", "%1$d", "%q", "%\xff", "%-"};
  Serialized (*const serialize)(size_t, const char *, ...) = Serialize;  // by its address the format goes unchecked
  for (const char *format : formats) EXPECT_EQ(serialize(100, format, 1, 2).error, EINVAL) << format;
  Serialized out = Serialize(100, "%d", 1);
  EXPECT_EQ(MsgFmt_Format("%d %d", out.area.data(), out.count), nullptr);
  EXPECT_EQ(MsgFmt_Format("%s", out.area.data(), out.count), nullptr);
  EXPECT_EQ(MsgFmt_Format("none", out.area.data(), out.count), nullptr);
}

std::vector<std::byte> AreaOf(std::initializer_list<MsgFmtArg> arguments, std::string_view strings = {}) {
  std::vector<std::byte> area(arguments.size() * sizeof(MsgFmtArg));
  size_t at = 0;
  for (const MsgFmtArg &argument : arguments) StoreLittle(area.data() + sizeof argument * at++, argument);
  for (const char c : strings) area.push_back(static_cast<std::byte>(c));
  return area;
}

TEST(RenderEvent, RendersWhatItCanOfBadArguments) {
  struct Row {
    const char *format;
    std::vector<std::byte> area;
    uint32_t count;
    const char *text;
  };
  constexpr auto kString = MsgFmtKind::kString;
  const Row rows[] = {
      {"a %s b", AreaOf({{kString, 4, 17}}, "abc"), 1, "a bc b"},            // no NUL where it should be
      {"a %s b", AreaOf({{kString, UINT32_MAX, 16}}, "abc"), 1, "a abc b"},  // cut off
      {"a %s b", AreaOf({{kString, 4, 20}}, "abc"), 1, "a ? b"},             // behind the area
      {"a %s b", AreaOf({{kString, 4, UINT64_MAX}}, "abc"), 1, "a ? b"},
      {"a %s b", AreaOf({{kString, 0, 16}}, "abc"), 1, "a ? b"},
      {"a %s b", AreaOf({{MsgFmtKind{9}, 4, 16}}), 1, "a ? b"},
      {"a %s b", AreaOf({{MsgFmtKind::kSigned, 4, UINT64_MAX}}), 1, "a -1 b"},  // another kind
      {"a %d b", AreaOf({{kString, 4, 16}}, std::string_view("abc", 4)), 1, "a abc b"},
      {"a %d b", AreaOf({{MsgFmtKind::kSigned, 3, 7}}), 1, "a 7 b"},  // no such width
      {"a %d b", AreaOf({}), 0, "a ? b"},
      {"a %d b", AreaOf({}), UINT32_MAX, "a ? b"},  // a count without descriptors
      {"a %d b", AreaOf({{MsgFmtKind::kSigned, 4, 7}, {MsgFmtKind::kSigned, 4, 8}}), 2, "a 7 b"},  // one too many
      {"a %q %d", AreaOf({{MsgFmtKind::kSigned, 4, 7}}), 1, "a ? 7"},
      {"a %d %", AreaOf({{MsgFmtKind::kSigned, 4, 7}}), 1, "a 7 ?"},
  };
  for (const Row &row : rows) {
    std::string text;
    EXPECT_FALSE(RenderEvent(row.format, row.area.data(), row.area.size(), row.count, &text)) << row.text;
    EXPECT_EQ(text, row.text);
  }
}

TEST(RenderEvent, LimitsFieldsOfHostileWidth) {
  for (const int64_t width : {int64_t{INT_MAX}, int64_t{INT_MIN}, int64_t{-2'000'000'000}, INT64_MAX, INT64_MIN}) {
    const auto area = AreaOf({{MsgFmtKind::kSigned, 8, static_cast<uint64_t>(width)},
                              {MsgFmtKind::kSigned, 8, static_cast<uint64_t>(width)},
                              {MsgFmtKind::kSigned, 4, 1}});
    std::string text;
    RenderEvent("%*.*d", area.data(), area.size(), 3, &text);
    EXPECT_LT(text.size(), 10'000u) << width;
  }
  std::string text;
  const auto area = AreaOf({{MsgFmtKind::kSigned, 4, 1}});
  RenderEvent("%2000000000.2000000000d", area.data(), area.size(), 1, &text);
  EXPECT_LT(text.size(), 10'000u);
}

}  // namespace
}  // namespace hosted
