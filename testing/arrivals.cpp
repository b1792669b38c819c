#include "testing/arrivals.h"

#include "eventRecord/eventDecoder.h"

namespace testing_support {

void Arrivals::Take(const std::string &record) {
  const eventrecord::DecodedEvent event =
      eventrecord::DecodeEvent(reinterpret_cast<const std::byte *>(record.data()), record.size());
  const std::lock_guard lock(mutex_);
  ++events_;
  for (const std::string &problem : event.problems) problems_.Add(event.name + ": " + problem);
  if (event.arguments.empty() || !event.arguments[0].text.starts_with("n-")) return;
  const uint64_t number = std::stoull(std::string(event.arguments[0].text.substr(2)));
  Series &series = series_[event.name];
  if (number < series.next) {
    const bool isLate = series.skipped.erase(number) > 0;
    problems_.Add(event.name + (isLate ? ": late " : ": twice ") + std::to_string(number));
    return;
  }
  for (; series.next < number; ++series.next) series.skipped.insert(series.next);
  series.next = number + 1;
}

uint64_t Arrivals::Events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

uint64_t Arrivals::Missing(const std::string &name, uint64_t end) const {
  const std::lock_guard lock(mutex_);
  const auto found = series_.find(name);
  const Series series = found == series_.end() ? Series() : found->second;
  return series.skipped.size() + (end > series.next ? end - series.next : 0);
}

}  // namespace testing_support
