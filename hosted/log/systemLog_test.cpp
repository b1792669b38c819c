#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <thread>

#include "base/unixListener.h"
#include "hosted/log/logTime.h"
#include "hosted/testSupport.h"
#include "platform/statistics.h"
#include "testing/journalListener.h"
#include "testing/unread.h"

namespace hosted {
namespace {

using testing_support::JournalListener;
using testing_support::Unread;

[[gnu::format(printf, 2, 3)]] void Emit(const HykSyslogParam *params, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Hyk_SyslogExtended(LOG_DAEMON, LOG_INFO, "", "", "", params == nullptr ? nullptr : "amb", params, format, arguments);
  va_end(arguments);
}

/// Log as the daemon does.
void LogText(const std::string &text) {
  const HykSyslogParam params[] = {{"threadName", Hyk_GetThreadName()}, {"", ""}};
  Emit(params, "%s", text.c_str());
}

TEST(LogTime, IsTheGregorianCalendars) {
  const auto format = [](timespec time) {
    std::string out(kLogTimeSize, '\0');
    FormatLogTime(time, out.data());
    return out;
  };
  EXPECT_EQ(format({253'402'300'799, 1'002'999}), "9999-12-31T23:59:59.001002Z");
  for (time_t seconds = -86'400LL * 800; seconds < 86'400LL * 365 * 140; seconds += 86'399) {
    tm civil{};
    gmtime_r(&seconds, &civil);
    char expected[32];
    strftime(expected, sizeof expected, "%FT%T.000000Z", &civil);
    ASSERT_EQ(format({seconds, 0}), expected);
  }
}

TEST(SystemLog, WritesTheAgreedRecord) {
  LogListener listener;
  char host[256] = "";
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  std::thread named([] {
    EXPECT_EQ(Hyk_SetThreadName("StorageAPDCorrelator"), 0);
    LogText("rynd setup completed. Start polling loop.\n");
    char kernelName[16];
    pthread_getname_np(pthread_self(), kernelName, sizeof kernelName);
    EXPECT_STREQ(kernelName, "StorageAPDCorre");
  });
  named.join();
  const std::regex expected(
      "<30>1 \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{6}Z " + std::string(host) + " rynd " +
      std::to_string(getpid()) +
      " - \\[amb threadName=\"StorageAPDCorrelator\"\\] rynd setup completed. Start polling loop.");
  const std::string record = listener.Next();
  EXPECT_TRUE(std::regex_match(record, expected)) << record;
  LogText("x");
  EXPECT_NE(listener.Next().find(" [amb threadName=\"rynd\"] x"), std::string::npos);
  Emit(nullptr, "%d", 5);
  EXPECT_TRUE(listener.Next().ends_with(" - - 5"));
}

TEST(SystemLog, KeepsLineEndsAndQuotesOutOfTheFraming) {
  LogListener listener;
  const std::pair<const char *, const char *> messages[] = {
      {"a\nb\r\nc\rd", "a b  c d"}, {"a\n", "a"}, {"a\n\n", "a "}, {"a\r\n", "a"}, {"", ""}, {"\n", ""}, {" ", " "},
  };
  for (const auto &[message, expected] : messages) {
    LogText(message);
    EXPECT_EQ(listener.NextMessage(), expected);
  }
  const HykSyslogParam params[] = {{"threadName", "a\"b\\c]d\ne"}, {"second", ""}, {"", ""}};
  Emit(params, "x");
  EXPECT_NE(listener.Next().find(R"([amb threadName="a\"b\\c\]d e" second=""] x)"), std::string::npos);
}

TEST(SystemLog, CarriesLongMessagesAndCutsTheLongest) {
  LogListener listener;
  for (size_t length = 1700; length < 2100; ++length) {  // around where the stack's room ends
    const std::string text(length, 'x');
    LogText(text);
    ASSERT_EQ(listener.NextMessage(), text);
  }
  LogText(std::string(100'000, 'y'));
  EXPECT_EQ(listener.NextMessage(), std::string(100'000, 'y'));
  for (const size_t length : {230'000u, 5'000'000u}) {
    LogText(std::string(length, 'z'));
    const std::string cut = listener.NextMessage();
    EXPECT_GT(cut.size(), 50'000u);
    EXPECT_TRUE(cut.starts_with("zzz") && cut.ends_with("zz (cut)"));
  }
}

/// Every length of each argument around where the stack's room ends, written as the C library does.
TEST(SystemLog, WritesLinesOfObservationsAsTheCLibraryDoes) {
  LogListener listener;
  const auto check = [&](unsigned long number, const char *id, const char *message) {
    char expected[8192];
    std::snprintf(expected, sizeof expected, "%luus: [%s] %s|", number, id == nullptr ? "(null)" : id,
                  message == nullptr ? "(null)" : message);
    Emit(nullptr, "%luus: [%s] %s|\n", number, id, message);
    const std::string record = listener.Next();
    ASSERT_TRUE(record.ends_with(" - - " + std::string(expected))) << record.size();
  };
  check(0, "", "");
  check(UINT64_MAX, "ryn.a", "100% of it, %s and %lu");
  check(1795244277409622, nullptr, nullptr);
  for (size_t length = 1800; length < 2050; ++length) {
    const std::string text(length, 'x');
    check(1, text.c_str(), "");
    check(12345678901234567890UL, "id", text.c_str());
    check(10, text.substr(0, 1000).c_str(), text.substr(1000).c_str());
  }
}

TEST(SystemLog, UsesAListenerThatComesOrComesBack) {
  EXPECT_EQ(StandardErrorOf([] { LogText("nobody\nthere\n"); }), "rynd: nobody there\n");
  for (int run = 0; run < 3; ++run) {
    const std::string errors = StandardErrorOf([] {
      LogListener listener;
      LogText("first");
      LogText("second");
      EXPECT_EQ(listener.AllMessages(), (std::vector<std::string>{"first", "second"}));
    });
    EXPECT_EQ(errors, "");
    EXPECT_EQ(StandardErrorOf([] { LogText("gone"); }), "rynd: gone\n");
  }
  const std::string longText(20'000, 'x');
  EXPECT_EQ(StandardErrorOf([&] { LogText(longText); }), "rynd: " + longText + "\n");
}

/// How long `action` takes.
template <typename Action>
std::chrono::milliseconds TimeOf(const Action &action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

/// The sum of what the messages say was dropped, and the messages without it.
size_t TakeDropped(std::vector<std::string> *messages) {
  size_t dropped = 0;
  const std::regex told("(.*) \\((\\d+) records dropped\\)");
  for (std::string &message : *messages) {
    std::smatch match;
    if (!std::regex_match(message, match, told)) continue;
    dropped += std::stoul(match[2]);
    message = std::string(match[1]);
  }
  return dropped;
}

TEST(SystemLog, DropsAndCountsWhatAStalledListenerDoesNotTake) {
  // The queue holds some hundreds at most; of 1000 records each may not wait 100 ms for itself.
  constexpr int kRecords = 1000;
  for (const bool isHeld : {false, true}) {  // a thread may keep its lines together
    LogListener listener;
    const auto taken = TimeOf([isHeld] {
      std::thread([isHeld] {
        Hyk_HoldLog(isHeld);
        for (int i = 0; i < kRecords; ++i) {
          LogText("stalled");
          if (i % 3 == 2) Hyk_FlushLog();
        }
        Hyk_HoldLog(false);  // which sends what is left
      }).join();
    });
    EXPECT_LT(taken, std::chrono::seconds(20));
    std::vector<std::string> messages = listener.AllMessages();
    size_t dropped = TakeDropped(&messages);
    LogText("passes");
    LogText("passes, too");
    const std::string passed = listener.NextMessage();
    EXPECT_TRUE(passed.starts_with("passes (")) << passed;
    EXPECT_EQ(listener.NextMessage(), "passes, too");
    messages.push_back(passed);
    dropped += TakeDropped(&messages);
    EXPECT_EQ(dropped + messages.size(), size_t{kRecords} + 1);
  }
}

/// As an agent does: each observation's lines go together.
TEST(SystemLog, SendsTogetherWhatAThreadKeeps) {
  using Messages = std::vector<std::string>;
  LogText("finds no journal");
  std::thread([] {
    Hyk_HoldLog(true);
    {
      LogListener listener;
      LogText("first");
      LogText("second");
      EXPECT_EQ(listener.AllMessages(), Messages());
      Hyk_FlushLog();
      EXPECT_EQ(listener.AllMessages(), (Messages{"first", "second"}));
      Messages sent, got;
      std::thread reader([&] {
        while (got.empty() || got.back() != "behind it") {
          if (std::string one = listener.NextMessage(); !one.empty()) got.push_back(std::move(one));
        }
      });
      for (int i = 0; i < 60; ++i) {  // more than are kept, and some that never are
        sent.push_back(std::string(i % 10 == 7 ? 20'000 : i % 10 == 3 ? 3'000 : 100, static_cast<char>('A' + i)));
        LogText(sent.back());
      }
      Emit(nullptr, "without an element");
      LogText("behind it");
      Hyk_FlushLog();
      reader.join();
      ASSERT_EQ(got.size(), 62U);
      EXPECT_TRUE(got[60].ends_with(" - - without an element") && got[61] == "behind it");
      got.resize(60);
      EXPECT_EQ(got, sent);
    }
    StandardErrorOf(Hyk_FlushLog);  // what the listener's end has logged
    EXPECT_EQ(StandardErrorOf([] {
                LogText("nobody");
                LogText("there\n");
                Hyk_FlushLog();
              }),
              "rynd: nobody\nrynd: there\n");
    Hyk_HoldLog(false);
  }).join();
}

/// All that can be read from `fd` now.
std::string Drain(int fd) {
  std::string all;
  std::vector<char> part(100'000);
  for (pollfd ready{fd, POLLIN, 0}; poll(&ready, 1, 200) == 1;) {
    const ssize_t got = read(fd, part.data(), part.size());
    if (got <= 0) break;
    all.append(part.data(), static_cast<size_t>(got));
  }
  return all;
}

TEST(SystemLog, DoesNotWaitForGoodOnStandardError) {
  for (const auto kind : {Unread::Kind::kPipe, Unread::Kind::kSocket, Unread::Kind::kTerminal}) {
    const Unread unread(kind);
    {
      const StandardErrorAs redirected(unread.write.Get());
      EXPECT_LT(TimeOf([] {
                  for (int i = 0; i < 100; ++i) LogText(std::string(5000, 'x'));
                }),
                std::chrono::seconds(10));
      EXPECT_EQ(fcntl(unread.write.Get(), F_GETFL) & O_NONBLOCK, 0) << "it is others' too";
      Drain(unread.read.Get());
      // What was given up half way spoils no line behind it.
      std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // until records may wait again
      LogText("passes");
    }
    const std::string text = Drain(unread.read.Get());
    EXPECT_TRUE(std::regex_search(text, std::regex("(^|\n)rynd: passes \\(\\d+ records dropped\\)\r?\n$")))
        << static_cast<int>(kind) << ": " << text.substr(text.size() - std::min<size_t>(text.size(), 200));
  }
}

/// poll() finds room for a writer, and another takes it before the write.
TEST(SystemLog, DoesNotWaitForOtherWritersOnStandardError) {
  for (int round = 0; round < 30; ++round) {
    const Unread shared(Unread::Kind::kPipe);
    const StandardErrorAs redirected(shared.write.Get());
    std::atomic<bool> stop{false};
    const auto write = [&] {
      const std::string text(4096, 'o');
      while (!stop && ::write(shared.write.Get(), text.data(), text.size()) > 0) {
      }
    };
    std::thread others[] = {std::thread(write), std::thread(write)};
    // A reader that takes a while and then nothing more.
    std::thread reader([&] {
      char part[4096];
      for (int i = 0; i < 60 && read(shared.read.Get(), part, sizeof part) > 0; ++i) {
      }
    });
    for (int i = 0; i < 100; ++i) LogText(std::string(3000, 'x'));
    reader.join();
    LogText("stuck?");
    stop = true;
    std::thread unblock([&] { Drain(shared.read.Get()); });
    for (std::thread &other : others) other.join();
    unblock.join();
  }
  const LogListener last;  // takes the count of the dropped ones with it
}

/// A terminal of another user's, as under "su": it can't be opened anew. In a process that has no rights.
TEST(SystemLog, DoesNotWaitForWhatItMayNotOpen) {
  const Unread unread(Unread::Kind::kPipe);
  ASSERT_EQ(fchmod(unread.write.Get(), 0), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(unread.write.Get(), STDERR_FILENO);
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) _exit(1);
    LogText("first");
    for (int i = 0; i < 100; ++i) LogText(std::string(5000, 'x'));
    _exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const std::string text = Drain(unread.read.Get());
  EXPECT_TRUE(text.starts_with("rynd: first\nrynd: xxx"));
  EXPECT_LT(text.size(), 300'000u);
}

TEST(SystemLog, GivesATerminalNothingThatSteersIt) {
  const std::pair<const char *, const char *> rows[] = {
      {"plain \xc3\xa9", "plain \xc3\xa9"},
      {"\x1b]0;title\x07 a\tb\rc", "\\x1b]0;title\\x07 a\\tb c"},
      {"\x9b\x33\x31m \xc2\x9b \xe2\x80\xae \x7f", "\\x9b31m \\u009b \\u202e \\x7f"},
  };
  for (const auto &[text, shown] : rows) {
    EXPECT_EQ(StandardErrorOf([line = text] { LogText(line); }), "rynd: " + std::string(shown) + "\n");
  }
  EXPECT_EQ(StandardErrorOf([] { EXPECT_TRUE(Hyk_WriteStandardError("two\nlines", 9)); }), "two\\nlines\n");
}

TEST(Journal, TakesRecordsAsFieldsWhereItIs) {
  LogText("takes the time of the last look for a journal");
  const LogListener syslog;
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  JournalListener journal;
  const std::string head = "PRIORITY=6\nSYSLOG_FACILITY=3\nSYSLOG_PID=" + std::to_string(getpid()) +
                           "\nSYSLOG_IDENTIFIER=rynd\nMESSAGE=",
                    tail = "\nAMB_THREADNAME=rynd\n";
  LogText("set up\n");
  EXPECT_EQ(journal.Next(), head + "set up" + tail);
  const HykSyslogParam params[] = {{"odd name-\xff", "two\nlines"}, {"empty", ""}, {"", ""}};
  Emit(params, "%s", "x");
  const std::string binary("AMB_ODD_NAME__\n\x09\0\0\0\0\0\0\0two\nlines\n", 33);
  EXPECT_EQ(journal.Next(), head + "x\n" + binary + "AMB_EMPTY=\n");
  // No datagram holds 230 KB where the send buffer has its usual size.
  for (const size_t size : {size_t{100'000}, size_t{230'000}}) {
    if (RYND_EMULATED && size > 200'000) break;  // the emulator loses what comes with an empty datagram
    LogText(std::string(size, 'y'));
    EXPECT_TRUE(journal.Next() == head + std::string(size, 'y') + tail);
    EXPECT_EQ(journal.files, size > 200'000 ? 1 : 0);
  }
}

TEST(Journal, CountsWhatItDoesNotTakeAndIsLeftWhenItGoes) {
  HykLogStatistics before{}, after{};
  Hyk_GetLogStatistics(&before);
  constexpr uint64_t kRecords = 600;
  uint64_t taken = 0;
  {
    JournalListener journal;
    for (uint64_t i = 0; i < kRecords; ++i) LogText("stalled");
    while (!journal.Next().empty()) ++taken;
    LogText("passes");
    const std::string told = "\nMESSAGE=passes (" + std::to_string(kRecords - taken) + " records dropped)\n";
    EXPECT_NE(journal.Next().find(told), std::string::npos) << told;
  }
  Hyk_GetLogStatistics(&after);
  EXPECT_EQ(after.records - before.records, taken + 1);
  EXPECT_EQ(after.dropped - before.dropped, kRecords - taken);
  EXPECT_EQ(StandardErrorOf([] { LogText("gone"); }), "rynd: gone\n");
  JournalListener again;
  EXPECT_EQ(StandardErrorOf([] { LogText("its first record"); }), "");
  EXPECT_NE(again.Next().find("\nMESSAGE=its first record\n"), std::string::npos);
}

TEST(SystemLog, IsUsedByManyThreadsAtOnce) {
  std::atomic<bool> stop{false};
  const base::UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const StandardErrorAs redirected(nowhere.Get());
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i, &stop] {
      const std::string name = "thread " + std::to_string(i);
      Hyk_SetThreadName(name.c_str());
      while (!stop) LogText(name);
    });
  }
  for (int run = 0; run < 3; ++run) {  // the listener comes and goes meanwhile
    LogListener listener;
    for (int i = 0; i < 100; ++i) {
      const std::string record = listener.Next(5000);
      const size_t name = record.find("thread ");
      EXPECT_TRUE(name != std::string::npos && record.find("\"] " + record.substr(name, 8)) != std::string::npos)
          << record;
    }
  }
  stop = true;
  for (std::thread &thread : threads) thread.join();
  const LogListener last;  // takes the count of the dropped ones with it
}

TEST(ThreadName, IsKeptWholeUpToItsLimit) {
  std::thread([] {
    EXPECT_STREQ(Hyk_GetThreadName(), "rynd");
    for (const size_t size : {0u, 63u, 100u}) {
      EXPECT_EQ(Hyk_SetThreadName(std::string(size, 'n').c_str()), 0);
      EXPECT_EQ(Hyk_GetThreadName(), std::string(std::min<size_t>(size, 63), 'n'));
    }
    EXPECT_NE(Hyk_SetThreadName(nullptr), 0);
  }).join();
}

}  // namespace
}  // namespace hosted
