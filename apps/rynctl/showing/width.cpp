// Asks the terminal for its size. Any thread.
#include "rynctl/showing/width.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace rynctl {

size_t OutputWidth(const Console &console) {
  winsize size{};
  if (!console.terminal || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return std::max<size_t>(20, size.ws_col);
}

}  // namespace rynctl
