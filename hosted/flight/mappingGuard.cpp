// The handler runs in whichever thread has made the access, within it.
#include "hosted/flight/mappingGuard.h"

#include <signal.h>
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <cstdint>

namespace hosted {
namespace {

struct Mapping {
  std::atomic<uintptr_t> base = 0;  ///< 0 for none; stored last
  std::atomic<size_t> size = 0;
};
std::array<Mapping, 8> mappings;

struct sigaction before;

/// Put memory in the place of the mapping that `address` lies in. False when it lies in none.
bool Replace(uintptr_t address) {
  for (const Mapping &mapping : mappings) {
    const uintptr_t base = mapping.base;
    if (base == 0 || address < base || address - base >= mapping.size) continue;
    return mmap(reinterpret_cast<void *>(base), mapping.size, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0) != MAP_FAILED;
  }
  return false;
}

void OnBusError(int, siginfo_t *info, void *) {
  const int error = errno;
  if (Replace(reinterpret_cast<uintptr_t>(info->si_addr))) {
    mapping_guard::isLost = true;
  } else {
    sigaction(SIGBUS, &before, nullptr);  // the access is made once more, and meets with what it did before
  }
  errno = error;
}

bool Install() {
  struct sigaction action {};
  action.sa_sigaction = OnBusError;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  return sigaction(SIGBUS, &action, &before) == 0;
}

}  // namespace

bool GuardMapping(std::byte *base, size_t size) {
  static const bool isInstalled = Install();
  for (Mapping &mapping : mappings) {
    if (!isInstalled || mapping.base != 0) continue;
    mapping.size = size;
    mapping.base = reinterpret_cast<uintptr_t>(base);
    return true;
  }
  return false;
}

void UnguardMapping(const std::byte *base) {
  for (Mapping &mapping : mappings) {
    if (mapping.base == reinterpret_cast<uintptr_t>(base)) mapping.base = 0;
  }
}

}  // namespace hosted
