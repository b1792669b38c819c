// Preloaded into the daemon by the bench: counts what it allocates in a file that the bench maps, too. Any thread.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

/// The counter, in the file that RYND_ALLOCATIONS names; null without one.
std::atomic<uint64_t> *MapCounter() {
  const char *path = getenv("RYND_ALLOCATIONS");
  const int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  void *memory = mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return memory == MAP_FAILED ? nullptr : static_cast<std::atomic<uint64_t> *>(memory);
}

std::atomic<uint64_t> *const counter = MapCounter();

void Count() {
  if (counter != nullptr) counter->fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size) {
  Count();
  return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
  Count();
  return __libc_calloc(count, size);
}
void *realloc(void *memory, size_t size) {
  Count();
  return __libc_realloc(memory, size);
}

}  // extern "C"
