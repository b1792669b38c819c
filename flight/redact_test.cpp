#include "flight/redact.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "flight/reader.h"
#include "flight/writer.h"
#include "hosted/records/rawRecord.h"
#include "rynctl/showing/testEvent.h"
#include "testing/testRoot.h"

namespace flight {
namespace {

using hosted::ArgumentKind;

const char kPath[] = "/redacted.rec";

std::vector<std::byte> MakeObservation(const std::vector<std::string> &texts) {
  hosted::RawRecord record{7, 8, "ryn.storage.apd.start", "Device %s, secret42 is part of the message", {}};
  for (const std::string &text : texts) record.arguments.push_back({ArgumentKind::kString, 0, 0, text});
  record.arguments.push_back({ArgumentKind::kSigned, 4, 4711, {}});
  return hosted::EncodeRecord(record);
}

TEST(Redact, ReplacesNamesTheSameEverywhereAndNothingElse) {
  const std::string path = testing_support::ProcessRoot().Path() + kPath;
  const auto record = MakeObservation({"naa.600508b1001c4d", "/hyfs/volumes/5f1a-Payroll22/", "vmhba32:C0:T0:L7",
                                       "Payroll22mgmtdfleetdPayroll22/fleetd.mgmtdPayroll22fleet"});
  const auto event = rynctl::EventBytes(rynctl::kApdStart, {"naa.600508b1001c4d", "Unknown", "Payroll22"});
  std::ofstream file(path, std::ios::binary);
  Writer writer(&file);
  const auto put = [&writer](decltype(Entry::what) what) { writer.Append({1, 2, 0, "APDCorrelator", what}); };
  put(Start{false, 1, 2, 3, "0.2.0", "Jan", "/home/secret42", "boot-secret42"});
  put(HostAnswer{HostKind::kText, false, false, 0, "sysinfo/system/systemUuid", rynctl::kTestUuid});
  put(HostAnswer{HostKind::kText, true, false, 0, "sysinfo/config/intOpts/Net/LinkFlappingThreshold", "1003"});
  put(Observation{0, 0, 0, record});
  put(Taken{RecordHash(record.data(), record.size()), record.size()});
  put(HostAnswer{HostKind::kExists, false, false, 0, "storage/devices/naa.600508b1001c4d", ""});
  put(HostAnswer{HostKind::kList, false, false, 0, "storage/devices/naa.600508b1001c4d/partitions", "1\n210\n"});
  put(HostAnswer{HostKind::kText, false, false, 0, "storage/devices/naa.600508b1001c4d/partitions/210",
                 "5f1a-Payroll22"});
  put(HostAnswer{HostKind::kList, false, false, 0, "storage/filesystems", "5f1a-Payroll22\n%2FPayroll22%25\n"});
  put(HostAnswer{HostKind::kText, false, false, 0, "vms/4711", "web server of 10.217.3.4"});
  put(HostAnswer{HostKind::kWrite, false, false, 0, "configstore/amb/g/k.json", "{\"reason\": \"Payroll22 moved\"}"});
  put(Event{event});
  file.close();

  std::ostringstream out;
  ASSERT_EQ(Redact(path, &out), "");
  for (const char *secret : {"600508b1001c4d", "Payroll22", "vmhba32", "5f1a", "server", "217", "ccddeeff", "home"}) {
    EXPECT_EQ(out.str().find(secret), std::string::npos) << secret;
  }
  std::ofstream(path, std::ios::binary) << out.str();
  std::string error;
  const std::unique_ptr<Reader> reader = Reader::Open(path, &error);
  ASSERT_NE(reader, nullptr) << error;
  std::vector<std::string> kept;  // paths and contents
  hosted::RawRecord seen;
  uint64_t hash = 0, taken = 0;
  std::string said;
  for (Entry entry; reader->Next(&entry);) {
    if (const auto *one = std::get_if<Observation>(&entry.what)) {
      ASSERT_EQ(hosted::CheckRecord(one->record.data(), one->record.size()), nullptr);
      seen = hosted::DecodeRecord(one->record.data(), one->record.size());
      hash = RecordHash(one->record.data(), one->record.size());
    } else if (const auto *begun = std::get_if<Taken>(&entry.what)) {
      taken = begun->hash;
    } else if (const auto *host = std::get_if<HostAnswer>(&entry.what)) {
      kept.push_back(std::string(host->path).append("=").append(host->content));
    } else if (const auto *posted = std::get_if<Event>(&entry.what)) {
      said.assign(reinterpret_cast<const char *>(posted->record.data()), posted->record.size());
    }
  }
  ASSERT_EQ(seen.arguments.size(), 5u);
  EXPECT_EQ(seen.id + seen.message, "ryn.storage.apd.startDevice %s, secret42 is part of the message");
  EXPECT_EQ(seen.arguments[4].bits, 4711u);
  EXPECT_EQ(taken, hash);
  const std::string device = seen.arguments[0].text, volume = seen.arguments[1].text.substr(14, 14);
  EXPECT_TRUE(seen.arguments[1].text.starts_with("/hyfs/volumes/")) << seen.arguments[1].text;
  EXPECT_EQ(device.size(), 18u);
  const std::string sought = volume.substr(5) + "mgmtdfleetd" + volume.substr(5) + "/fleetd.mgmtd";
  EXPECT_TRUE(seen.arguments[3].text.starts_with(sought)) << seen.arguments[3].text;
  ASSERT_EQ(kept.size(), 8u);
  EXPECT_EQ(kept[1], "sysinfo/config/intOpts/Net/LinkFlappingThreshold=1003");
  EXPECT_EQ(kept[2], "storage/devices/" + device + "=");
  EXPECT_EQ(kept[3], "storage/devices/" + device + "/partitions=1\n210\n");
  EXPECT_EQ(kept[4], "storage/devices/" + device + "/partitions/210=" + volume);
  EXPECT_EQ(kept[5], "storage/filesystems=" + volume + "\n%2F" + volume.substr(5) + "%25\n");
  EXPECT_TRUE(kept[6].starts_with("vms/4711=")) << kept[6];
  EXPECT_EQ(kept[7], "configstore/amb/g/k.json={\"reason\": \"" + volume.substr(5) + " moved\"}");
  EXPECT_NE(said.find(device + std::string(1, '\0') + "Unknown" + std::string(1, '\0') + volume.substr(5)),
            std::string::npos);
  EXPECT_EQ(said.substr(16, 36), kept[0].substr(kept[0].find('=') + 1));
  EXPECT_EQ(kept[0].find_first_not_of("0123456789abcdef-", kept[0].find('=') + 1), std::string::npos);
}

TEST(Redact, NamesThatDifferStayDifferent) {
  const std::string path = testing_support::ProcessRoot().Path() + kPath;
  {
    std::ofstream file(path, std::ios::binary);
    Writer writer(&file);
    for (int i = 0; i < 1000; ++i) {  // all there are of three digits
      const std::string text = std::to_string(1000 + i).substr(1);
      writer.Append({1, 2, 0, "", HostAnswer{HostKind::kText, false, false, 0, "net/portgroups/pg", text}});
    }
  }
  std::ostringstream out;
  ASSERT_EQ(Redact(path, &out), "");
  std::ofstream(path, std::ios::binary) << out.str();
  std::string error;
  const std::unique_ptr<Reader> reader = Reader::Open(path, &error);
  std::set<std::string> names;
  for (Entry entry; reader->Next(&entry);) names.emplace(std::get<HostAnswer>(entry.what).content);
  EXPECT_EQ(names.size(), 1000u);
  EXPECT_EQ(Redact(path + ".none", &out), path + ".none: No such file or directory");
}

}  // namespace
}  // namespace flight
