// The build that the host runs, compared with this program's. Stateless: any thread.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "hosted/host/hostTree.h"
#include "platform/hsi.h"

namespace {

constexpr char kOwnBuildDate[] = RYND_BUILD_DATE;  // "Jan  1 2001 00:00:00"
static_assert(sizeof kOwnBuildDate == kHsiBuildDateSize);

/// Copy `text` into `size` bytes, cut to fit, with its NUL.
void CopyCut(const std::string &text, char *out, size_t size) {
  if (size == 0) return;
  const size_t length = std::min(text.size(), size - 1);
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
}

}  // namespace

int HSI_CheckSig(char *kernelDate, size_t size, const char **ownDate) {
  *ownDate = kOwnBuildDate;
  std::string running;
  const int error = hosted::ReadHostText("sysinfo/system/buildSignature", &running);
  if (error == ENOENT) running = kOwnBuildDate;
  CopyCut(error != 0 && error != ENOENT ? "unreadable" : running, kernelDate, size);
  if (error != 0 && error != ENOENT) return error;
  return running == kOwnBuildDate ? 0 : EINVAL;
}
