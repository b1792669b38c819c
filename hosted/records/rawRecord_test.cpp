#include "hosted/records/rawRecord.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "hosted/records/littleEndian.h"
#include "hosted/testSupport.h"

namespace hosted {
namespace {

using Bytes = std::vector<std::byte>;

/// Id at 32, message at 38, then the arguments: i32 at 42, u8 at 54, string at 63, null string at 74; end at 82.
Bytes GoodRecord() {
  return EncodeRecord(
      {0x1122334455667788, 99, "ryn.a", "msg", {Signed(4, -2), Unsigned(1, 200), Text("ab"), NullText()}});
}

/// CheckRecord over a copy that ends where its memory ends, so that a sanitizer sees a read beyond.
const char *CheckCopy(const Bytes &record, size_t length) {
  const std::unique_ptr<std::byte[]> copy(new std::byte[length]);
  std::memcpy(copy.get(), record.data(), length);
  return CheckRecord(copy.get(), length);
}

TEST(RawRecord, HasTheAgreedBytes) {
  const std::string_view expected(
      "\x88\x77\x66\x55\x44\x33\x22\x11\x63\0\0\0\0\0\0\0"
      "\x52\0\0\0\x04\0\0\0\x06\0\0\0\x04\0\0\0ryn.a\0msg\0"
      "\x01\x04\0\0\x04\0\0\0\xfe\xff\xff\xff"
      "\x02\x01\0\0\x01\0\0\0\xc8"
      "\x03\0\0\0\x03\0\0\0ab\0"
      "\x04\0\0\0\0\0\0\0",
      82);
  const Bytes record = GoodRecord();
  EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(record.data()), record.size()), expected);
  EXPECT_STREQ(CheckRecord(record.data(), record.size()), nullptr);
  EXPECT_EQ(EncodeRecord(DecodeRecord(record.data(), record.size())), record);
}

/// A record whose message lacks its NUL, with no argument behind it.
TEST(RawRecord, NeedsNoNulAtTheEndOfTheMessage) {
  Bytes record = RecordOf("ryn.a", {}, "text");
  record.pop_back();
  StoreLittle(record.data() + 16, static_cast<uint32_t>(record.size()));
  StoreLittle(record.data() + 28, uint32_t{4});
  EXPECT_STREQ(CheckRecord(record.data(), record.size()), nullptr);
  EXPECT_EQ(DecodeRecord(record.data(), record.size()).message, "text");
  StoreLittle(record.data() + 28, uint32_t{0});
  record.resize(38);
  StoreLittle(record.data() + 16, uint32_t{38});
  EXPECT_STREQ(CheckRecord(record.data(), record.size()), nullptr);
  EXPECT_EQ(DecodeRecord(record.data(), record.size()).message, "");
}

TEST(RawRecord, RefusesEveryMalformation) {
  struct Mutation {
    const char *what;
    size_t offset;
    Bytes bytes;
  };
  const auto bytes = [](std::initializer_list<int> values) {
    Bytes out;
    for (const int value : values) out.push_back(static_cast<std::byte>(value));
    return out;
  };
  const Mutation mutations[] = {
      {"total too small", 16, bytes({0x51})},
      {"total too large", 16, bytes({0x53})},
      {"one argument less", 20, bytes({3})},
      {"one argument more", 20, bytes({5})},
      {"id of no bytes", 24, bytes({0})},
      {"id of its NUL only", 24, bytes({1})},
      {"id to beyond the record", 24, bytes({51})},
      {"lengths that wrap", 24, bytes({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff})},
      {"id without a NUL", 37, bytes({'x'})},
      {"id that begins with NUL", 32, bytes({0})},
      {"NUL inside of the id", 34, bytes({0})},
      {"message to beyond the record", 28, bytes({45})},
      {"message over the arguments", 28, bytes({5})},
      {"kind 0", 42, bytes({0})},
      {"kind 5", 42, bytes({5})},
      {"width 0 of an integer", 43, bytes({0})},
      {"width 3 of an integer", 43, bytes({3, 0, 0, 3})},
      {"width 8 but 4 bytes", 43, bytes({8})},
      {"reserved byte 2", 44, bytes({1})},
      {"reserved byte 3", 45, bytes({1})},
      {"payload to beyond the record", 46, bytes({0xff, 0xff, 0xff, 0xff})},
      {"width of a string", 64, bytes({1})},
      {"string without its NUL", 73, bytes({'c'})},
      {"string with a second NUL", 71, bytes({0})},
      {"string of no bytes", 67, bytes({0})},
      {"width of a null string", 75, bytes({4})},
  };
  for (const Mutation &mutation : mutations) {
    Bytes record = GoodRecord();
    std::copy(mutation.bytes.begin(), mutation.bytes.end(), record.begin() + static_cast<ptrdiff_t>(mutation.offset));
    EXPECT_STRNE(CheckCopy(record, record.size()), nullptr) << mutation.what;
  }
  Bytes record = GoodRecord();
  record.push_back(std::byte{0});
  StoreLittle(record.data() + 16, static_cast<uint32_t>(record.size()));
  StoreLittle(record.data() + 78, uint32_t{1});
  EXPECT_STRNE(CheckCopy(record, record.size()), nullptr) << "null string with a payload";
}

TEST(RawRecord, RefusesEveryTruncation) {
  const Bytes good = GoodRecord();
  for (size_t length = 0; length < good.size(); ++length) {
    EXPECT_STRNE(CheckCopy(good, length), nullptr) << length;
    if (length < 20) continue;
    Bytes adjusted = good;  // the total says the truth, the parts do not
    StoreLittle(adjusted.data() + 16, static_cast<uint32_t>(length));
    EXPECT_STRNE(CheckCopy(adjusted, length), nullptr) << length;
  }
}

}  // namespace
}  // namespace hosted
