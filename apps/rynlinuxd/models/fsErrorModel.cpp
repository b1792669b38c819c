#include "models/fsErrorModel.h"

#include <sys/fanotify.h>

#include <cerrno>
#include <cstring>

namespace rynlinuxd {
namespace {

// Older headers lack these of Linux 5.16.
constexpr uint64_t kFsError = 0x8000;
constexpr uint8_t kInfoFid = 1, kInfoError = 5;

struct InfoHeader {
  uint8_t type = 0, pad = 0;
  uint16_t length = 0;
};

template <typename T>
bool Load(std::span<const std::byte> bytes, size_t at, T *value) {
  if (at > bytes.size() || bytes.size() - at < sizeof *value) return false;
  std::memcpy(value, bytes.data() + at, sizeof *value);
  return true;
}

FsError ParseInfos(std::span<const std::byte> infos) {
  FsError error;
  InfoHeader header;
  while (Load(infos, 0, &header) && header.length >= sizeof header && header.length <= infos.size()) {
    if (header.type == kInfoFid) {
      Load(infos, sizeof header, &error.fsid.first);
      Load(infos, sizeof header + 4, &error.fsid.second);
    } else if (header.type == kInfoError) {
      Load(infos, sizeof header, &error.error);
      Load(infos, sizeof header + 4, &error.count);
    }
    infos = infos.subspan(header.length);
  }
  return error;
}

std::string KeyOf(const WatchedFs &fs) {
  return fs.uuid == std::array<uint8_t, 16>{} ? fs.device : UuidText(fs.uuid);
}

template <typename T>
T BigEndian(const uint8_t *bytes) {
  T value = 0;
  for (size_t i = 0; i < sizeof value; ++i) value = static_cast<T>(value << 8 | bytes[i]);
  return value;
}

Report Corrupt(const WatchedFs &fs) {
  const uint8_t *uuid = fs.uuid.data();
  Report report{"ryn.hyfs.metadata.corruptondisk", "metadata of a volume is damaged on the disk", {}};
  report.arguments = {Number(BigEndian<uint32_t>(uuid)), Number(BigEndian<uint32_t>(uuid + 4)),
                      Number(BigEndian<uint16_t>(uuid + 8))};
  for (size_t i = 10; i < fs.uuid.size(); ++i) report.arguments.push_back(Number(uuid[i]));
  report.arguments.push_back(Text(fs.label.empty() ? fs.point : fs.label));
  return report;
}

}  // namespace

std::string UuidText(const std::array<uint8_t, 16> &uuid) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < uuid.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += {kDigits[uuid[i] >> 4], kDigits[uuid[i] & 15]};
  }
  return text;
}

std::vector<FsError> ParseFsErrors(std::span<const std::byte> events) {
  std::vector<FsError> errors;
  fanotify_event_metadata event;
  while (Load(events, 0, &event) && event.event_len >= sizeof event && event.event_len <= events.size()) {
    if ((event.mask & kFsError) != 0 && event.metadata_len >= sizeof event && event.metadata_len <= event.event_len) {
      errors.push_back(ParseInfos(events.subspan(event.metadata_len, event.event_len - event.metadata_len)));
    }
    events = events.subspan(event.event_len);
  }
  return errors;
}

void FsErrorModel::Take(const FsError &error) {
  const auto found = watched_.find(error.fsid);
  if (found == watched_.end()) return;
  const WatchedFs &fs = found->second;
  const bool isDamage = error.error == EUCLEAN || error.error == EBADMSG;
  Report report = isDamage && fs.uuid != std::array<uint8_t, 16>{}
                      ? Corrupt(fs)
                      : External(Severity::kError, "file system " + fs.point,
                                 std::string("it reports an error: ") + strerrordesc_np(error.error));
  // One event a kind of error, until it is repaired: a damaged file system reports the same over and over.
  report.key = (isDamage ? "damaged " : "failing ") + KeyOf(fs);
  report.state = std::to_string(error.error);
  report.isOpen = true;
  reporter_->Tell(std::move(report));
}

void FsErrorModel::TakeRecorded(const WatchedFs &fs, uint64_t count) {
  const std::string component = "file system " + fs.point;
  Report report = count > 0 ? External(Severity::kWarning, component,
                                       "errors stand in its record: check it (fsck) while it is not mounted")
                            : External(Severity::kInfo, component, "no errors stand in its record any more");
  report.key = "recorded " + KeyOf(fs);
  report.state = count > 0 ? "errors" : "";
  report.isOpen = count > 0;
  reporter_->Tell(std::move(report));
  if (count > 0) return;
  for (const char *what : {"damaged ", "failing "}) {
    Report repaired = External(Severity::kInfo, component, "it was repaired");
    repaired.key = what + KeyOf(fs);
    reporter_->Tell(std::move(repaired));
  }
}

void FsErrorModel::TakeReadOnly(const WatchedFs &fs, bool isReadOnly) {
  Report report = isReadOnly
                      ? External(Severity::kError, "file system " + fs.point, "it has turned read-only after an error")
                      : External(Severity::kInfo, "file system " + fs.point, "it can be written again");
  report.key = "readonly " + KeyOf(fs);
  report.state = isReadOnly ? "readonly" : "";
  report.isOpen = isReadOnly;
  reporter_->Tell(std::move(report));
}

}  // namespace rynlinuxd
