#include "models/storage/smartWarning.h"

namespace rynlinuxd {

std::optional<Report> ReadSmartWarning(const std::function<std::string(const char *)> &value,
                                       const std::function<std::string(const std::string &)> &identify) {
  const std::string kind = value("SMARTD_FAILTYPE"), device = value("SMARTD_DEVICE");
  if (kind.empty() || device.empty()) return std::nullopt;
  // Of a disk behind a controller's file, such as "/dev/sda [megaraid_disk_03]", the file's own disk is another one.
  // "[SAT]" says no more than that a disk of SATA is asked by the commands of SCSI.
  const std::string shown = value("SMARTD_DEVICESTRING");
  const bool isOwn = shown.empty() || shown == device || shown == device + " [SAT]";
  std::string disk = isOwn ? identify(device) : shown;
  if (disk.empty()) disk = device;
  // The disk's own verdict that it will fail. Everything else is a count, a failed test or a wish to be asked.
  if (kind == "Health") return Report{"ryn.hcm.event.disk.predictive.failure", "disk %s will fail", {Text(disk)}};
  const std::string message = value("SMARTD_MESSAGE");
  const bool isTest = kind == "EmailTest";
  return External(isTest ? Severity::kInfo : Severity::kWarning, "disk " + disk,
                  (isTest ? "smartd tries whether it is heard: " : "smartd reports " + kind + ": ") + message);
}

}  // namespace rynlinuxd
