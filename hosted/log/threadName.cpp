// The calling thread's name. Any thread, each for itself.
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/system.h"

namespace {

constexpr size_t kNameSize = 64;        // NUL included; a longer name is cut
constexpr size_t kKernelNameSize = 16;  // what the kernel keeps, NUL included

thread_local constinit std::array<char, kNameSize> threadName{"rynd"};

}  // namespace

int Hyk_SetThreadName(const char *name) {
  if (name == nullptr) return EINVAL;
  const size_t length = std::min(std::strlen(name), kNameSize - 1);
  std::memmove(threadName.data(), name, length);
  threadName[length] = '\0';
  std::array<char, kKernelNameSize> shortName{};
  std::memcpy(shortName.data(), threadName.data(), std::min(length, kKernelNameSize - 1));
  return pthread_setname_np(pthread_self(), shortName.data());
}

const char *Hyk_GetThreadName() {
  return threadName.data();
}
