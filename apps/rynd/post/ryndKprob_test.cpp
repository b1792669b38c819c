#include "post/ryndKprob.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>

#include "base/uniqueFd.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/paths.h"
#include "platform/messageFormat.h"
#include "post/eventRecord.h"
#include "post/ryndKprobQueue.h"
#include "testing/coreSupport.h"

namespace rynd {
namespace {

uint32_t Field(const std::string &record, size_t offset) {
  uint32_t value = 0;
  std::memcpy(&value, record.data() + offset, sizeof value);
  return value;
}

/// A management agent that has its records in the backlog until they are read.
class PostTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string path = hosted::RootPath(hosted::kEventSocket);
    ASSERT_EQ(hosted::MakeFolders(path.substr(0, path.rfind('/')), 0755), 0);
    ASSERT_EQ(hosted::ServeUnixSocket(path, SOCK_STREAM, 0600, &agent_), 0);
    constexpr timeval kMoment{0, 1000};  // what is sent at all waits already
    setsockopt(agent_.Get(), SOL_SOCKET, SO_RCVTIMEO, &kMoment, sizeof kMoment);
  }
  /// The next record, or "" when none was sent.
  std::string Next() {
    const base::UniqueFd connection(accept4(agent_.Get(), nullptr, nullptr, SOCK_NONBLOCK));
    std::string bytes(70000, '\0');
    if (!connection) return "";
    size_t length = 0;
    for (ssize_t count; (count = recv(connection.Get(), bytes.data() + length, bytes.size() - length, 0)) > 0;) {
      length += static_cast<size_t>(count);
    }
    return bytes.substr(0, length);
  }
  static std::string Name(const std::string &record) { return record.c_str() + kEventNameOffset; }

  base::UniqueFd agent_;
};

TEST_F(PostTest, TheRecordHoldsNameArgumentsAndFourZeroBytes) {
  EventPostInit();
  CapturedLog log;
  EventPost(kProblem, "@&!*@*@(amb.problem.storage.apd.timeout)Device [%s] after %d seconds, %lu.", "naa.1", -5,
            (1UL << 40));
  const std::string record = Next();
  const std::string name = "amb.problem.storage.apd.timeout";
  const size_t area = kEventNameOffset + name.size() + 1;
  ASSERT_EQ(record.size(), area + 3 * 16 + sizeof("naa.1") + 4);
  EXPECT_EQ(Field(record, kEventTotalLengthOffset), record.size());
  EXPECT_EQ(Field(record, kEventArgumentCountOffset), 3u);
  EXPECT_EQ(Field(record, kEventNameLengthOffset), name.size() + 1);
  EXPECT_EQ(Name(record), name);
  EXPECT_EQ(record[54], 0);
  EXPECT_EQ(record[55], 0);
  EXPECT_EQ(record[kEventUuidOffset + 8], '-');  // the UUID's text
  const auto *bytes = reinterpret_cast<const std::byte *>(record.data()) + area;
  EXPECT_EQ(MsgFmt_GetArg(bytes, 0).kind, MsgFmtKind::kString);
  EXPECT_EQ(MsgFmt_GetArg(bytes, 0).value, 48u);  // an offset
  EXPECT_STREQ(reinterpret_cast<const char *>(bytes) + 48, "naa.1");
  EXPECT_EQ(MsgFmt_GetArg(bytes, 1).value, static_cast<uint64_t>(-5));
  EXPECT_EQ(MsgFmt_GetArg(bytes, 2).size, 8u);
  EXPECT_EQ(record.substr(record.size() - 4), std::string(4, '\0'));
  const std::string text = "([amb.problem.storage.apd.timeout] Device [naa.1] after -5 seconds, 1099511627776.)";
  EXPECT_EQ(log.CountOf("The event " + text + " was sent immediately to mgmtd;"), 1u);
  EXPECT_EQ(log.CountOf("us: [amb.problem.storage.apd.timeout] Device [naa.1] after -5"), 1u);
}

TEST_F(PostTest, TheCategoryAloneCutsTheId) {
  EventPost(kClear, "@&!*@*@(amb.clear.a.exit)x");
  EventPost(kAudit, "@&!*@*@(amb.audit.a)x");
  EventPost(kAudit, "@&!*@*@(amb.problem.a)x");
  EventPost(kProblem, "short");
  EventPost(kProblem, "@&!*@*@(amb.problem.unclosed");
  for (const char *name :
       {"amb.clear.a.exit", "amb.audit.a", "amb.audit.m.a", "amb.problem.", "amb.problem.unclosed"}) {
    EXPECT_EQ(Name(Next()), name);
  }
}

TEST_F(PostTest, ANameIsAtMost128Characters) {
  const std::string fits(116, 'x');
  Rynd_PostProblem(fits.c_str(), "text");
  EXPECT_EQ(Name(Next()), "amb.problem." + fits);
  CapturedLog log;
  Rynd_PostProblem((fits + "x").c_str(), "text");
  EXPECT_EQ(Next(), "");
  EXPECT_EQ(log.Messages(),
            std::vector<std::string>{"Using discouraged \"Rynd_PostProblem\" interface for kprob: " + fits + "x"});
}

TEST_F(PostTest, LargeArgumentsGrowTheBufferFourTimesAndNoMore) {
  // 68 + 14 for the name's part, 16 for the descriptor, 4 behind: what a text and its NUL may take of a buffer.
  const size_t overhead = 68 + sizeof("amb.problem.a") + 16 + 4 + 1;
  for (const size_t buffer : {1171u, 2342u, 4684u, 9368u, 18736u}) {
    for (const size_t beyond : {0u, 1u}) {
      const std::string text(buffer - overhead + beyond, 't');
      EventPost(kProblem, "@&!*@*@(amb.problem.a)%s", text.c_str());
      const std::string record = Next();
      if (buffer == 18736 && beyond == 1) {
        EXPECT_EQ(record, "");
      } else {
        ASSERT_EQ(record.size(), buffer + beyond);
        EXPECT_EQ(record.substr(record.size() - 4 - text.size() - 1, text.size()), text);
      }
    }
  }
}

TEST_F(PostTest, WithoutMemoryTheEventIsDroppedAndSaidSo) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  CapturedLog log;
  WithoutMemoryFor(2 * 1171, [] { EventPost(kProblem, "@&!*@*@(amb.problem.a)x"); });
  const std::string large(2000, 'x');
  WithoutMemoryFor(2 * 2342, [&] { EventPost(kProblem, "@&!*@*@(amb.problem.a)%s", large.c_str()); });
  EXPECT_EQ(Next(), "");
  EXPECT_EQ(log.Messages(), (std::vector<std::string>{"Failed to allocate 1171 bytes for prob buffer.",
                                                      "Failed to allocate 2342 bytes for prob buffer."}));
}

TEST_F(PostTest, FatalCases) {
  if (!FailingAllocation::IsPossible()) GTEST_SKIP() << "allocation is the sanitizer's own";
  EXPECT_DEATH(EventPost(3, "@&!*@*@(amb.problem.a)x"), "Rynd - Panic: NOT_REACHED apps/rynd/ryndKprob:656");
  EXPECT_DEATH(WithoutMemoryFor(6, [] { EventPost(kProblem, "@&!*@*@(amb.problem.short)x"); }),
               "Rynd - Panic: MEM_ALLOC apps/rynd/ryndKprob:667");
}

}  // namespace
}  // namespace rynd
