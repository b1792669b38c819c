#include "loop/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace rynlinuxd {
namespace {

/// Change the sets of this process. 0 or an errno value.
int Change(const std::function<void(__user_cap_data_struct *)> &change) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, data) != 0) return errno;
  change(data);
  return syscall(SYS_capset, &header, data) == 0 ? 0 : errno;
}

/// Those below 32, which are all that this program knows.
__u32 Bit(int capability) {
  return __u32{1} << capability;
}

int KeepOnly(__u32 kept) {
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  return Change([&](__user_cap_data_struct *data) {
    data[0].effective = data[0].permitted = data[0].permitted & kept;
    data[1].effective = data[1].permitted = 0;
    data[0].inheritable = data[1].inheritable = 0;
  });
}

}  // namespace

void LowerCapabilities() {
  if (geteuid() != 0) Change([](__user_cap_data_struct *data) { data[0].effective &= ~Bit(CAP_DAC_OVERRIDE); });
}

RaisedCapability::RaisedCapability(int capability) : capability_(capability) {
  Change([&](__user_cap_data_struct *data) { data[0].effective |= data[0].permitted & Bit(capability); });
}

RaisedCapability::~RaisedCapability() {
  if (geteuid() != 0) Change([&](__user_cap_data_struct *data) { data[0].effective &= ~Bit(capability_); });
}

int DropCapabilities() {
  // Whoever is root without being privileged could not even look into folders of the daemon's user.
  return KeepOnly(geteuid() == 0 ? Bit(CAP_DAC_OVERRIDE) : 0);
}

int KeepOnlyCapability(int capability) {
  return KeepOnly(Bit(capability));
}

}  // namespace rynlinuxd
