// Arbitrary bytes into the fan-out code, and what comes out of the streams into Observations.
#include <poll.h>

#include <cstdlib>
#include <string_view>

#include "core/fanOut.h"
#include "fuzz/seedRecord.h"

namespace {

rynd::Stream *OpenStream() {
  rynd::StreamListInit();
  rynd::Subscription *subscription = rynd::SubscriptionCreate();
  rynd::SubscriptionAddPrefix(subscription, "a");
  rynd::Stream *stream = nullptr;
  if (rynd::StreamOpen("fuzz", *subscription, &stream) != 0) abort();
  rynd::SubscriptionDestroy(subscription);
  return stream;
}

/// Read what the fan-out has written. A record that the library refuses is dropped, as its agent would be.
void Drain(rynd::Stream *stream) {
  pollfd set{stream->readEnd, POLLIN, 0};
  while (poll(&set, 1, 0) > 0) {
    Observation *observation = nullptr;
    bool complete = false;
    if (rynd::StreamRead(stream, &observation, &complete) != 0 || !complete) continue;
    const char *id = nullptr;
    Ryn_GetID(observation, &id);
    if (!std::string_view(id).starts_with("ryn.a.")) abort();  // not what the stream is subscribed to
    Ryn_Free(observation);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static rynd::Stream *const stream = OpenStream();
  const std::vector<std::byte> bytes = fuzz::Mutate(data, size, fuzz::SeedRecord());
  rynd::streamLock.Acquire();
  rynd::FanOut(bytes.data(), bytes.size());
  rynd::streamLock.Release();
  Drain(stream);
  return 0;
}
