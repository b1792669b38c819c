#include "loop/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace rynlinuxd {

int DropCapabilities() {
  // Whoever is root without being privileged could not even look into folders of the daemon's user.
  const __u32 kept = geteuid() == 0 ? 1U << CAP_DAC_OVERRIDE : 0;
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, data) != 0) return errno;
  for (__user_cap_data_struct &word : data) word.inheritable = 0;
  data[0].effective = data[0].permitted = data[0].permitted & kept;
  data[1].effective = data[1].permitted = 0;
  return syscall(SYS_capset, &header, data) == 0 ? 0 : errno;
}

}  // namespace rynlinuxd
