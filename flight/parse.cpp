#include "flight/parse.h"

#include <cstring>

namespace flight {
namespace {

/// Takes a payload apart from its front.
class Payload {
 public:
  explicit Payload(Bytes bytes) : left_(bytes) {}

  template <typename Part>
  bool Take(Part *part) {
    if (left_.size() < sizeof *part) return false;
    std::memcpy(part, left_.data(), sizeof *part);
    left_ = left_.subspan(sizeof *part);
    return true;
  }
  bool Take(size_t length, Bytes *bytes) {
    if (left_.size() < length) return false;
    *bytes = left_.first(length);
    left_ = left_.subspan(length);
    return true;
  }
  bool Take(size_t length, std::string_view *text) {
    Bytes bytes;
    if (!Take(length, &bytes)) return false;
    *text = {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    return true;
  }
  bool IsEmpty() const { return left_.empty(); }

 private:
  Bytes left_;
};

bool ParseStart(Payload *payload, Start *start) {
  StartPart part;
  if (!payload->Take(&part) || part.continued > 1) return false;
  start->isContinued = part.continued == 1;
  start->pid = part.pid;
  start->startWallUs = part.startWallUs;
  start->startMonotonicNs = part.startMonotonicNs;
  return payload->Take(part.lengths[0], &start->version) && payload->Take(part.lengths[1], &start->build) &&
         payload->Take(part.lengths[2], &start->root) && payload->Take(part.lengths[3], &start->bootId);
}

bool ParseObservation(Payload *payload, Observation *observation) {
  ObservationPart part;
  if (!payload->Take(&part)) return false;
  observation->context = part.context;
  observation->pid = part.pid;
  observation->uid = part.uid;
  return payload->Take(part.length, &observation->record);
}

bool ParseHost(Payload *payload, HostAnswer *host) {
  HostPart part;
  if (!payload->Take(&part) || part.what >= kHostKinds || part.flags > (kIsSetting | kIsCut)) return false;
  host->what = static_cast<HostKind>(part.what);
  host->isSetting = (part.flags & kIsSetting) != 0;
  host->isCut = (part.flags & kIsCut) != 0;
  host->status = part.status;
  return payload->Take(part.path, &host->path) && payload->Take(part.content, &host->content);
}

bool ParseDrop(Payload *payload, Drop *drop) {
  DropPart part;
  return payload->Take(&part) && payload->Take(part.lengths[0], &drop->name) &&
         payload->Take(part.lengths[1], &drop->reason);
}

bool ParseClock(Payload *payload, ClockRead *clock) {
  ClockPart part;
  if (!payload->Take(&part)) return false;
  clock->clock = static_cast<ClockKind>(part.clock);
  clock->value = part.value;
  return clock->clock >= ClockKind::kWallS && clock->clock <= ClockKind::kWindowS;
}

bool ParseFixed(Kind kind, Payload *payload, Entry *entry) {
  switch (kind) {
    case Kind::kTaken: {
      TakenPart part{};
      const bool whole = payload->Take(&part);
      entry->what = Taken{part.hash, part.length};
      return whole;
    }
    case Kind::kLost: {
      LostPart part{};
      const bool whole = payload->Take(&part);
      entry->what = Lost{part.count};
      return whole;
    }
    case Kind::kStop: {
      StopPart part{};
      const bool whole = payload->Take(&part);
      entry->what = Stop{part.status};
      return whole;
    }
    default:
      return false;
  }
}

bool Parse(Kind kind, Payload *payload, Bytes all, Entry *entry) {
  switch (kind) {
    case Kind::kStart:
      return ParseStart(payload, &entry->what.emplace<Start>());
    case Kind::kObservation:
      return ParseObservation(payload, &entry->what.emplace<Observation>());
    case Kind::kDone:
      entry->what = Done{};
      return true;
    case Kind::kTimer:
      return payload->Take(all.size(), &entry->what.emplace<Timer>().name);
    case Kind::kClock:
      return ParseClock(payload, &entry->what.emplace<ClockRead>());
    case Kind::kHost:
      return ParseHost(payload, &entry->what.emplace<HostAnswer>());
    case Kind::kEvent:
      return payload->Take(all.size(), &entry->what.emplace<Event>().record);
    case Kind::kDrop:
      return ParseDrop(payload, &entry->what.emplace<Drop>());
    default:
      return ParseFixed(kind, payload, entry);
  }
}

}  // namespace

bool IsPlausible(const EntryHeader &header) {
  return header.length >= sizeof header && header.length <= kMaxEntrySize && header.kind >= 1 &&
         header.kind <= kKinds && header.thread < kMaxThreads;
}

bool ParsePayload(Kind kind, Bytes payload, Entry *entry) {
  Payload left(payload);
  return Parse(kind, &left, payload, entry) && left.IsEmpty();
}

}  // namespace flight
