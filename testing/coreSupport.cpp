#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#include "base/unixAddress.h"
#include "core/basics/log.h"
#include "core/fanOut.h"
#include "hosted/records/rawRecord.h"
#include "platform/ryn.h"
#include "testing/coreSupport.h"
#include "testing/testRoot.h"

namespace {
constexpr size_t kNone = SIZE_MAX;
thread_local size_t failingSize = kNone;
}  // namespace

#if defined(__has_feature)
#define RYND_KEEPS_ALLOCATION __has_feature(thread_sanitizer)
#else
#define RYND_KEEPS_ALLOCATION 0
#endif

#if !RYND_KEEPS_ALLOCATION
// Every owner in the daemon allocates with these two, so a test can make any single one of them fail.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  return size == failingSize ? nullptr : malloc(size);
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept {
  return size == failingSize ? nullptr : malloc(size);
}
void *operator new(size_t size) {
  void *memory = malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void *operator new[](size_t size) {
  return operator new(size);
}
void operator delete(void *memory) noexcept {
  free(memory);
}
void operator delete[](void *memory) noexcept {
  free(memory);
}
void operator delete(void *memory, size_t) noexcept {
  free(memory);
}
void operator delete[](void *memory, size_t) noexcept {
  free(memory);
}

#endif

namespace rynd {

bool FailingAllocation::IsPossible() {
  return !RYND_KEEPS_ALLOCATION;
}
FailingAllocation::FailingAllocation(size_t size) {
  failingSize = size;
}
FailingAllocation::~FailingAllocation() {
  failingSize = 0;
}

CapturedLog::CapturedLog() {
  const std::string path = testing_support::ProcessRoot() / "/dev/log";
  std::filesystem::create_directories(testing_support::ProcessRoot() / "/dev");
  unlink(path.c_str());
  base::UnixAddress address;
  base::MakeUnixAddress(path, &address);
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (bind(fd_, address.Get(), base::UnixAddress::kLength) != 0) abort();
  Log("this record tells of those that an earlier test has dropped\n");
  Messages();
  messages_.clear();
}

CapturedLog::~CapturedLog() {
  close(fd_);
}

const std::vector<std::string> &CapturedLog::Messages() {
  std::vector<char> record(300000);
  for (;;) {
    const ssize_t length = recv(fd_, record.data(), record.size(), MSG_DONTWAIT);
    if (length < 0) return messages_;
    const std::string text(record.data(), static_cast<size_t>(length));
    const size_t start = text.find("\"] ");
    messages_.push_back(start == std::string::npos ? text : text.substr(start + 3));
  }
}

size_t CapturedLog::CountOf(const std::string &part) {
  size_t count = 0;
  for (const std::string &message : Messages()) count += message.find(part) != std::string::npos ? 1 : 0;
  return count;
}

std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts,
                                  const std::string &message) {
  hosted::RawRecord record;
  record.id = id;
  record.message = message;
  for (const std::string &text : texts) record.arguments.push_back({hosted::ArgumentKind::kString, 0, 0, text});
  return hosted::EncodeRecord(record);
}

Observation *MakeObservation(const std::string &id, const std::vector<std::string> &texts, const std::string &message) {
  const std::vector<std::byte> record = MakeRecord(id, texts, message);
  auto *bytes = new std::byte[record.size()];
  std::memcpy(bytes, record.data(), record.size());
  Observation *observation = nullptr;
  if (Ryn_MakeRyn(bytes, record.size(), &observation) != 0) abort();
  return observation;
}

Stream *OpenStream(const char *prefix) {
  Subscription *subscription = SubscriptionCreate();
  SubscriptionAddPrefix(subscription, prefix);
  Stream *stream = nullptr;
  if (StreamOpen(prefix, *subscription, &stream) != 0) abort();
  SubscriptionDestroy(subscription);
  return stream;
}

int LockedFanOut(const std::vector<std::byte> &bytes) {
  const std::unique_ptr<std::byte[]> copy(new std::byte[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  streamLock.Acquire();
  const int status = FanOut(copy.get(), bytes.size());
  streamLock.Release();
  return status;
}

std::string ReadId(Stream *stream) {
  pollfd set{stream->readEnd, POLLIN, 0};
  for (bool complete = false; poll(&set, 1, 0) > 0;) {
    Observation *observation = nullptr;
    if (StreamRead(stream, &observation, &complete) != 0) return "(failed)";
    if (!complete) continue;
    const char *id = nullptr;
    Ryn_GetID(observation, &id);
    const std::string text = id;
    Ryn_Free(observation);
    return text;
  }
  return "";
}

}  // namespace rynd
