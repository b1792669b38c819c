// Memory that runs out at random: preloaded into a process, it fails RYND_FAIL_MEMORY of 10,000 allocations from main()
// on, by the seed RYND_FAIL_SEED. Any thread.
#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
}

namespace {

using Main = int(int, char **, char **);
Main *programMain = nullptr;
uint64_t failures = 0;  // of 10,000
std::atomic<uint64_t> state = 0;

/// Before it the C++ library takes the memory that it throws std::bad_alloc with.
int MainWithoutMemory(int argc, char **argv, char **environment) {
  const char *rate = getenv("RYND_FAIL_MEMORY");
  const char *seed = getenv("RYND_FAIL_SEED");
  state = seed == nullptr ? 1 : strtoull(seed, nullptr, 10);
  failures = rate == nullptr ? 0 : strtoull(rate, nullptr, 10);
  return programMain(argc, argv, environment);
}

/// One number of a sequence that all threads share; true when this allocation fails.
bool Fails() {
  if (failures == 0) return false;
  uint64_t mixed = state.fetch_add(0x9e3779b97f4a7c15, std::memory_order_relaxed);
  mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
  if ((mixed ^ (mixed >> 31)) % 10'000 >= failures) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

/// The C library's, which every program starts with.
int __libc_start_main(Main *main, int argc, char **argv, void (*init)(), void (*fini)(), void (*end)(), void *stack) {
  programMain = main;
  const auto start = reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return start(MainWithoutMemory, argc, argv, init, fini, end, stack);
}

void *malloc(size_t size) {
  return Fails() ? nullptr : __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
  return Fails() ? nullptr : __libc_calloc(count, size);
}
void *realloc(void *old, size_t size) {
  return Fails() ? nullptr : __libc_realloc(old, size);
}
}
