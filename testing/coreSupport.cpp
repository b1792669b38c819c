#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "core/basics/log.h"
#include "core/fanOut.h"
#include "hosted/contexts/unixSocket.h"
#include "hosted/records/rawRecord.h"
#include "platform/ryn.h"
#include "testing/coreSupport.h"

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
  Log("this record tells of those that an earlier test has dropped\n");
  listener_.AllMessages();
}

const std::vector<std::string> &CapturedLog::Messages() {
  for (std::string &message : listener_.AllMessages()) messages_.push_back(std::move(message));
  return messages_;
}

size_t CapturedLog::CountOf(const std::string &part) {
  size_t count = 0;
  for (const std::string &message : Messages()) count += message.find(part) != std::string::npos ? 1 : 0;
  return count;
}

std::vector<std::byte> MakeRecord(const std::string &id, const std::vector<std::string> &texts,
                                  const std::string &message) {
  hosted::RawRecord record{0, 0, id, message, {}};
  for (const std::string &text : texts) record.arguments.push_back(hosted::Text(text));
  return hosted::EncodeRecord(record);
}

void EventSocket::Open() {
  constexpr timeval kMoment{0, 1000};
  ASSERT_EQ(hosted::MakeFolders(path_.substr(0, path_.rfind('/')), 0755), 0);
  ASSERT_EQ(hosted::ServeUnixSocket(path_, SOCK_STREAM, 0600, &fd_), 0);
  setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVTIMEO, &kMoment, sizeof kMoment);
}

void EventSocket::Close() {
  fd_.Reset();
  unlink(path_.c_str());
}

base::UniqueFd EventSocket::Accept() const {
  return base::UniqueFd(accept(fd_.Get(), nullptr, nullptr));
}

std::string EventSocket::Next() const {
  const base::UniqueFd connection = Accept();
  std::string bytes;
  char part[4096];
  for (ssize_t count; (count = recv(connection.Get(), part, sizeof part, 0)) > 0;) {
    bytes.append(part, static_cast<size_t>(count));
  }
  return bytes;
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
