// The flight recorder in the running daemon: what it keeps, kills at random instants, rings that are full, disks that
// are, that fail, or that do not answer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>
#include <map>
#include <random>
#include <regex>
#include <set>

#include "flight/reader.h"
#include "hosted/records/rawRecord.h"
#include "testing/flight/recordedDaemon.h"
#include "testing/processState.h"

namespace testing_support {
namespace {

const char kReady[] = "rynd setup completed. Start polling loop.";

/// What stands in a recording, and whether it can be.
struct Content {
  size_t starts = 0, stops = 0, observations = 0, taken = 0, events = 0;
  uint64_t lost = 0;
  std::vector<std::string> wrong;
  std::map<std::string, std::string> threads;  ///< the kinds of each thread's entries, a letter each
  std::map<std::string, std::string> settings;

  void Blame(const std::string &problem) {
    if (wrong.size() < 5) wrong.push_back(problem);
  }
  void Follow(const flight::Entry &entry) {
    if (entry.monotonicNs < lastNs_) Blame("the time goes back");
    lastNs_ = entry.monotonicNs;
    threads[std::string(entry.thread)] += "SotTdchexls"[entry.what.index()];
    thread_ = entry.threadNumber;
    std::visit([this](const auto &what) { See(what); }, entry.what);
  }

 private:
  void See(const flight::Start &start) {
    if (start.isContinued) return;
    ++starts;
    isWhole_ = true;
    next_.clear();
    busy_.clear();
    hashes_.clear();
  }
  void See(const flight::Observation &seen) {
    ++observations;
    if (const char *what = hosted::CheckRecord(seen.record.data(), seen.record.size()); what != nullptr) {
      return Blame(what);
    }
    hashes_.insert(flight::RecordHash(seen.record.data(), seen.record.size()));
    // Each sender numbers its records, so that a gap is an observation that was not recorded.
    const uint64_t number = hosted::DecodeRecord(seen.record.data(), seen.record.size()).sequence;
    if (const auto [known, isFirst] = next_.emplace(seen.context, number + 1); !isFirst) {
      if (known->second != number && isWhole_) Blame("an observation is missing");
      known->second = number + 1;
    }
  }
  void See(const flight::Taken &entry) {
    ++taken;
    if (!hashes_.contains(entry.hash) && isWhole_) Blame("an unknown observation was taken");
    if (!busy_.insert(thread_).second && isWhole_) Blame("a thread takes two at once");
  }
  void See(const flight::Done &) { busy_.erase(thread_); }
  void See(const flight::Event &event) {
    ++events;
    if (event.record.size() < 72) Blame("an event is no record");
  }
  void See(const flight::HostAnswer &host) {
    if (host.isSetting) settings[std::string(host.path)] = host.content;
  }
  void See(const flight::Lost &entry) {
    lost += entry.count;
    isWhole_ = false;
  }
  void See(const flight::Stop &) { ++stops; }
  template <typename Other>
  void See(const Other &) {}

  bool isWhole_ = false;  ///< nothing of this run was lost or overwritten
  uint64_t lastNs_ = 0;
  uint16_t thread_ = 0;
  std::map<uint32_t, uint64_t> next_;
  std::set<uint64_t> hashes_;
  std::set<uint16_t> busy_;
};

Content ContentOf(const TestRoot &root) {
  Content content;
  std::string error;
  const std::unique_ptr<flight::Reader> reader = flight::Reader::Open(FlightFolder(root), &error);
  if (reader == nullptr) {
    content.Blame(error);
    return content;
  }
  for (flight::Entry entry; reader->Next(&entry);) content.Follow(entry);
  for (const flight::Finding &finding : reader->Findings()) {
    content.Blame(finding.file + " " + std::to_string(finding.offset) + ": " + finding.what);
  }
  return content;
}

uint64_t RingBytes(const TestRoot &root) {
  uint64_t bytes = 0;
  for (const auto &file : std::filesystem::directory_iterator(FlightFolder(root))) bytes += file.file_size();
  return bytes;
}

/// Sends numbered observations over `fd`, of all kinds of agents and lengths, until it can't.
void Send(const base::UniqueFd &fd, unsigned seed, const std::atomic<bool> &stop) {
  constexpr std::array kIds = {"ryn.storage.apd.start", "ryn.net.hynic.linkstate.down",
                               "ryn.storage.vfat.full", "ryn.hardware.cpu.unknown",
                               "ryn.clock.unknown",     "ryn.storage.velfs.unknown"};
  std::mt19937 random(seed);
  for (uint64_t number = 0; !stop; ++number) {
    hosted::RawRecord record;
    record.sequence = number;
    record.id = kIds[random() % kIds.size()];
    record.message = std::string(random() % 64 == 0 ? random() % 60000 : random() % 100, 'm');
    record.arguments = {{hosted::ArgumentKind::kString, 0, 0, "naa." + std::to_string(random() % 50)}};
    if (!SendRecord(fd, hosted::EncodeRecord(record))) return;
  }
}

/// Eight contexts that send as fast as they can, as long as it lives.
class Senders {
 public:
  explicit Senders(const TestRoot &root) {
    for (unsigned context = 0; context < 8; ++context) {
      senders_.emplace_back([this, context, fd = ConnectKernel(root, context)] { Send(fd, context, stop_); });
    }
  }
  ~Senders() {
    stop_ = true;
    for (std::thread &sender : senders_) sender.join();
  }

 private:
  std::atomic<bool> stop_ = false;
  std::vector<std::thread> senders_;
};

/// Starts a daemon below `root`, has many contexts send, and kills it a random while later.
void RunAndKill(const TestRoot &root, const LogListener &log, size_t run, std::mt19937 *random) {
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor(kReady, run));
  const Senders senders(root);
  std::this_thread::sleep_for(std::chrono::microseconds((*random)() % 120'000));
  daemon.Signal(SIGKILL);
  EXPECT_EQ(daemon.WaitForExit(), 128 + SIGKILL);
}

TEST(Recorder, AKillAtAnyInstantLeavesWholeEntries) {
  const size_t kills = EnvironmentNumber("RYND_KILLS", IsSlowBuild() ? 4 : 12);
  for (const unsigned megabytes : {256u, 2u}) {  // a ring that holds all, and one that turns over all the time
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    const EventListener events(root / "/var/run/corvane/mgmtd-kprob.sock");
    TurnOnRecorder(root, megabytes);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (size_t run = 1; run <= kills; ++run) {
      RunAndKill(root, log, run, &random);
      const Content content = ContentOf(root);
      ASSERT_TRUE(content.wrong.empty()) << "run " << run << ": " << content.wrong[0];
      if (RingBytes(root) < uint64_t{150} << 20 && megabytes > 2) {  // nothing was overwritten yet
        ASSERT_EQ(content.starts, run);
        ASSERT_GE(content.events, events.Records().Count()) << "what was not on the disk yet";
      }
      ASSERT_LE(RingBytes(root), megabytes << 20);
    }
    const Content content = ContentOf(root);
    EXPECT_GT(content.observations, 100u);
    EXPECT_GT(content.taken, 100u);
    // And one that ends as it should, behind all of them.
    Daemon last(root);
    ASSERT_TRUE(log.Lines().WaitFor(kReady, kills + 1));
    EXPECT_EQ(last.Stop(), 0);
    EXPECT_EQ(ContentOf(root).stops, 1u);
  }
}

TEST(Recorder, KeepsWhatAnAgentSawAndSaid) {
  const RunningDaemon running([](const TestRoot &root) {
    TurnOnRecorder(root);
    WriteFile(root / "/var/lib/corvane/host/sysinfo/config/intOpts/Net/LinkFlappingThreshold", "7\n");
  });
  ASSERT_TRUE(SendRecord(ConnectKernel(running.root), MakeRecord("ryn.net.hynic.linkstate.down", {"hynic0"})));
  // The agent takes it, reads its threshold and two clocks, waits for its timer, and then reads, posts and ends.
  Content content;
  EXPECT_TRUE(WaitUntil([&] {
    content = ContentOf(running.root);
    return std::regex_match(content.threads["netCorrelator"], std::regex("t.*h.*c.*dTc.*ed"));
  })) << content.threads["netCorrelator"];
  EXPECT_EQ(content.threads["TimerThread"].substr(0, 2), "Td");
  EXPECT_EQ(content.settings["sysinfo/config/intOpts/Net/LinkFlappingThreshold"], "7");
  EXPECT_EQ(std::filesystem::status(FlightFolder(running.root)).permissions(), std::filesystem::perms(0750));
}

TEST(Recorder, WhatPreventsItIsSaidAndHarmsNobody) {
  const std::string open = "/var/run/corvane/flight: others can write there";
  const std::pair<const char *, std::string> cases[] = {{"64\n", "Nothing is recorded: "},
                                                        {"65537\n", "from 0 to 65536"},
                                                        {"many\n", "Cannot read "},
                                                        {"0\n", kReady},
                                                        {"64\n", open}};
  for (const auto &[setting, line] : cases) {
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    WriteFile(root / "/var/lib/corvane/host/sysinfo/config/intOpts/Flight/Megabytes", setting);
    if (line == open) {
      const std::string folder = root / "/var/run/corvane/flight";
      std::filesystem::create_directories(folder);
      std::filesystem::permissions(folder, std::filesystem::perms::all);
    } else {
      WriteFile(FlightFolder(root), "no folder");
    }
    Daemon daemon(root);
    ASSERT_TRUE(log.Lines().WaitFor(kReady));
    EXPECT_EQ(log.Lines().CountOf(line), 1u) << setting;
    EXPECT_EQ(daemon.Stop(), 0);
  }
}

/// Each further byte of a file fails, as on a full disk.
void FillDisk(const TestRoot &, const Daemon &daemon) {
  const rlimit none{1000, 1000};
  ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_FSIZE, &none, nullptr), 0);
}

/// Accesses to what is mapped fail.
void CutFiles(const TestRoot &root, const Daemon &) {
  for (const auto &file : std::filesystem::directory_iterator(root / "/var/run/corvane/flight")) {
    std::filesystem::resize_file(file, 0);
  }
}

TEST(Recorder, AFullDiskAndLostMemoryTurnItOff) {
  for (const auto harm : {FillDisk, CutFiles}) {
    const TestRoot root;
    const LogListener log(root / "/dev/log");
    const EventListener events(root / "/var/run/corvane/mgmtd-kprob.sock");
    TurnOnRecorder(root, 2);
    Daemon daemon(root, [] { signal(SIGXFSZ, SIG_IGN); });
    ASSERT_TRUE(log.Lines().WaitFor(kReady));
    {
      const Senders senders(root);
      harm(root, daemon);
      EXPECT_TRUE(log.Lines().WaitFor("The flight recording ends: "));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_TRUE(SendRecord(ConnectKernel(root, 9), MakeRecord("ryn.clock.last")));
    EXPECT_TRUE(log.Lines().WaitFor("ryn.clock.last"));
    EXPECT_EQ(daemon.Stop(), 0);
    EXPECT_EQ(log.Lines().CountOf("The flight recording ends: "), 1u);
    if (harm == CutFiles) continue;
    const Content content = ContentOf(root);
    EXPECT_TRUE(content.wrong.empty()) << content.wrong[0];
    EXPECT_GT(content.observations, 0u);
  }
}

/// A disk of its own at `path`, as a file below `root`, which can be frozen; only root can have one.
struct FreezableDisk {
  FreezableDisk(const TestRoot &root, const std::string &where) : path(where) {
    const std::string image = root / "/disk ", make = "truncate -s 64M " + image + "&& mkfs.ext4 -q " + image;
    isMounted = RunShell("mkdir -p " + path + "; " + make + "&& mount -o loop " + image + path).status == 0;
    folder.Reset(open(path.c_str(), O_RDONLY | O_DIRECTORY));
  }
  ~FreezableDisk() {
    folder.Reset();
    if (isMounted) umount2(path.c_str(), MNT_DETACH);
  }
  bool Freeze(bool isFrozen) const { return ioctl(folder.Get(), isFrozen ? FIFREEZE : FITHAW, 0) == 0; }

  const std::string path;
  bool isMounted = false;
  base::UniqueFd folder;
};

TEST(Recorder, ADiskThatDoesNotAnswerHoldsUpNobody) {
  const TestRoot root;
  const FreezableDisk disk(root, FlightFolder(root));
  if (RYND_EMULATED || !disk.isMounted) GTEST_SKIP() << "only root can have a disk, and freeze it";
  const LogListener log(root / "/dev/log");
  TurnOnRecorder(root, 2);
  Daemon daemon(root);
  ASSERT_TRUE(log.Lines().WaitFor(kReady));
  {
    const Senders senders(root);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_TRUE(disk.Freeze(true));
  }
  std::atomic<bool> isFrozen = true;
  std::thread thaw([&] {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    isFrozen = !disk.Freeze(false);
  });
  {
    const Senders senders(root);  // far more than memory holds
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  EXPECT_TRUE(SendRecord(ConnectKernel(root, 9), MakeRecord("ryn.clock.frozen")));
  EXPECT_TRUE(log.Lines().WaitFor("ryn.clock.frozen"));
  EXPECT_TRUE(isFrozen) << "something has waited for the disk";
  thaw.join();
  ASSERT_FALSE(isFrozen);
  ASSERT_TRUE(WaitUntil([&] {
    EXPECT_TRUE(SendRecord(ConnectKernel(root, 9), MakeRecord("ryn.clock.thawed")));
    return ContentOf(root).lost > 0;
  }));
  EXPECT_EQ(daemon.Stop(), 0);
  const Content content = ContentOf(root);
  EXPECT_TRUE(content.wrong.empty() && content.observations > 0) << testing::PrintToString(content.wrong);
}

}  // namespace
}  // namespace testing_support
