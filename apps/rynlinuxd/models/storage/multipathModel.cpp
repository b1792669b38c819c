#include "models/storage/multipathModel.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "hosted/host/hostTree.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kSecondNs = 1'000'000'000;

uint64_t AsNumber(const std::string &text) {
  uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string ApdKey(const std::string &device) {
  return "apd " + device;
}

}  // namespace

std::string MultipathModel::NameOf(const std::string &number) const {
  std::array<char, 4096> target;
  const ssize_t got = readlink((system_ + "/dev/block/" + number).c_str(), target.data(), target.size());
  if (got <= 0) return number;
  const std::string path(target.data(), static_cast<size_t>(got));
  return path.substr(path.rfind('/') + 1);
}

void MultipathModel::Ask(const std::string &number) {
  questions_.insert(number);
}

std::vector<std::string> MultipathModel::TakeQuestions() {
  std::vector<std::string> questions(questions_.begin(), questions_.end());
  questions_.clear();
  for (const std::string &number : questions) devices_[number].askedAt = devices_[number].messages;
  return questions;
}

void MultipathModel::AskForAll() {
  for (auto &[number, device] : devices_) {
    // What waits for messages that were lost would wait in vain.
    device.early.clear();
    device.orderNs = INT64_MAX;
    device.sequence = 0;
    ++device.messages;
    Ask(number);
  }
}

void MultipathModel::Change(const Uevent &event, int64_t nowNs) {
  if (event.Value("SUBSYSTEM") != "block" || !event.path.starts_with("/devices/virtual/block/dm-") ||
      event.IsSynthetic())
    return;
  const std::string number = event.Value("MAJOR") + ':' + event.Value("MINOR");
  if (event.action == "remove") return Forget(number);
  if (event.action != "change") return;
  Device &device = devices_[number];
  ++device.messages;
  // Another table; a device that is made has its first one by such a message.
  if (event.Value("DM_TARGET") != "multipath") return Ask(number);
  const uint64_t sequence = AsNumber(event.Value("DM_SEQNUM"));
  if (device.name.empty()) device.name = DmName(event.Value("DM_UUID"), event.Value("DM_NAME"));
  if (!device.isMultipath) Ask(number);
  if (sequence <= device.sequence) return;
  device.early[sequence] = event;
  TakeReady(&device, nowNs);
  if (device.early.empty()) {
    device.orderNs = INT64_MAX;
  } else if (device.orderNs == INT64_MAX) {
    device.orderNs = nowNs + kOrderNs;
  }
}

/// Those whose turn it is. Of the first ones nobody knows; they wait.
void MultipathModel::TakeReady(Device *device, int64_t nowNs) {
  while (!device->early.empty()) {
    const auto next = device->early.begin();
    const bool isNext = device->sequence != 0 && next->first == device->sequence + 1;
    if (!isNext && nowNs < device->orderNs) return;
    device->sequence = next->first;
    const Uevent event = std::move(next->second);
    device->early.erase(next);
    Apply(device, event, nowNs);
  }
}

void MultipathModel::Apply(Device *device, const Uevent &event, int64_t nowNs) {
  const std::string &action = event.Value("DM_ACTION");
  const bool isBack = action == "PATH_REINSTATED";
  if (!isBack && action != "PATH_FAILED") return;
  const std::string &number = event.Value("DM_PATH");
  const auto [place, isNew] = device->paths.try_emplace(number);
  Path &path = place->second;
  // It vanishes from sysfs when it fails for good: the name is that which it had.
  if (isNew) path = {NameOf(number), !isBack};
  // The mapper's answer was newer.
  if (path.isActive == isBack) return;
  path.isActive = isBack;
  device->valid = static_cast<int64_t>(AsNumber(event.Value("DM_NR_VALID_PATHS")));
  TellPath(*device, path, false);
  SetValid(device, device->valid, nowNs);
}

void MultipathModel::SetValid(Device *device, int64_t valid, int64_t nowNs) {
  device->valid = valid;
  if (valid == 0) {
    if (device->zeroNs == INT64_MAX) device->zeroNs = nowNs;
    device->pollNs = nowNs;
    return;
  }
  device->zeroNs = device->pollNs = INT64_MAX;
  TellApd(*device, nowNs);
}

void MultipathModel::TellPath(const Device &device, const Path &path, bool isBaseline) {
  Report report{path.isActive ? "ryn.scsi.scsipath.pathstate.on" : "ryn.scsi.scsipath.pathstate.deadver2",
                path.isActive ? "path %s is on, it was %s" : "path %s is dead, it was %s, of device %s",
                {Text(path.name), Text(path.isActive ? "dead" : "on")}};
  if (!path.isActive) report.arguments.push_back(Text(device.name));
  report.key = "path " + device.name + ' ' + path.name;
  report.state = path.isActive ? "" : "dead";
  report.isOpen = !path.isActive;
  report.isBaseline = isBaseline;
  // No path, one, several.
  const int64_t redundancy = std::clamp<int64_t>(device.valid + 1, 1, 3);
  report.files = {
      {"storage/paths/" + hosted::HostComponent(path.name.c_str()), device.name},
      {"storage/devices/" + hosted::HostComponent(device.name.c_str()) + "/redundancy", std::to_string(redundancy)}};
  reporter_->Tell(std::move(report));
}

void MultipathModel::TellApd(const Device &device, int64_t nowNs) {
  Report report;
  report.key = ApdKey(device.name);
  report.arguments = {Text(device.name)};
  if (device.valid > 0) {
    report.id = "ryn.storage.apd.exit";
    report.message = "device %s has a path again";
  } else if (device.isQueueing) {
    report.id = "ryn.storage.apd.start";
    report.message = "device %s has no path";
    report.state = "start";
  } else {
    // What never waited has not waited for too long.
    const Told *told = ledger_->Find(report.key);
    if (told == nullptr || told->state.empty()) return;
    report.id = "ryn.storage.apd.timeout";
    report.message = "device %s has had no path for %d seconds, and what waited has failed";
    report.arguments.push_back(Number(static_cast<int32_t>((nowNs - device.zeroNs) / kSecondNs)));
    report.state = "timeout";
  }
  report.isOpen = !report.state.empty();
  reporter_->Tell(std::move(report));
}

void MultipathModel::TakePaths(Device *device, const DmDevice &found, bool isNew) {
  device->valid =
      std::count_if(found.isActive.begin(), found.isActive.end(), [](const auto &path) { return path.second; });
  for (auto path = device->paths.begin(); path != device->paths.end();) {
    if (found.isActive.contains(path->first)) {
      ++path;
      continue;
    }
    reporter_->Tell({"ryn.scsi.scsipath.remove", "path %s removed", {Text(path->second.name)}});
    path = device->paths.erase(path);
  }
  for (const auto &[number, isActive] : found.isActive) {
    const auto [place, isAdded] = device->paths.try_emplace(number);
    Path &path = place->second;
    const bool isChanged = isAdded || path.isActive != isActive;
    if (isAdded) path.name = NameOf(number);
    path.isActive = isActive;
    if (isAdded && !isNew) reporter_->Tell({"ryn.scsi.scsipath.add", "path %s added", {Text(path.name)}});
    if (isChanged) TellPath(*device, path, isNew);
  }
}

void MultipathModel::Answer(const std::string &number, const std::optional<DmDevice> &found, int64_t nowNs,
                            int64_t nowS) {
  const auto place = devices_.find(number);
  if (place != devices_.end() && place->second.messages != place->second.askedAt) return Ask(number);
  if (!found) return Forget(number);
  Device &device = devices_[number];
  const bool isNew = !device.isMultipath;
  device.isMultipath = true;
  device.name = found->name;
  device.isQueueing = found->isQueueing;
  TakePaths(&device, *found, isNew);
  const bool hadNone = device.zeroNs != INT64_MAX;
  SetValid(&device, device.valid, nowNs);
  if (device.valid > 0) return;
  // A run before this one has seen it go.
  const Told *told = ledger_->Find(ApdKey(device.name));
  if (!hadNone && told != nullptr && told->state == "start" && told->atS != 0) {
    device.zeroNs = nowNs - (nowS - told->atS) * kSecondNs;
  }
  TellApd(device, nowNs);
  device.pollNs = nowNs + (device.isQueueing ? kPollNs : kSlowPollNs);
}

void MultipathModel::Forget(const std::string &number) {
  const auto place = devices_.find(number);
  if (place == devices_.end()) return;
  const Device device = std::move(place->second);
  devices_.erase(place);
  questions_.erase(number);
  if (!device.isMultipath || device.valid > 0) return;
  // It has not come back. When it does, the ledger still knows that it was away.
  reporter_->Tell(
      External(Severity::kWarning, "storage device " + device.name, "it was removed while no path to it worked"));
}

int64_t MultipathModel::Due() const {
  int64_t due = questions_.empty() ? INT64_MAX : 0;
  for (const auto &[number, device] : devices_) due = std::min({due, device.pollNs, device.orderNs});
  return due;
}

void MultipathModel::OnDue(int64_t nowNs) {
  for (auto &[number, device] : devices_) {
    if (device.orderNs <= nowNs) {
      TakeReady(&device, nowNs);
      device.orderNs = INT64_MAX;
    }
    if (device.pollNs <= nowNs) {
      // The answer says when to ask again; none may come.
      device.pollNs = nowNs + kSlowPollNs;
      Ask(number);
    }
  }
}

void MultipathModel::Retell() {
  for (const auto &[number, device] : devices_) {
    if (!device.isMultipath) continue;
    for (const auto &[pathNumber, path] : device.paths) TellPath(device, path, false);
    // What has ended meanwhile, or is as it was told: the ledger knows.
    if (device.valid > 0 || device.isQueueing)
      TellApd(device, device.zeroNs);
    else
      Ask(number);
  }
}

}  // namespace rynlinuxd
