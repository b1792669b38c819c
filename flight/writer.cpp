#include "flight/writer.h"

#include <variant>

namespace flight {
namespace {

uint32_t Length(std::string_view text) {
  return static_cast<uint32_t>(text.size());
}
uint32_t Length(Bytes bytes) {
  return static_cast<uint32_t>(bytes.size());
}
template <typename Text>
Piece PieceOf(const Text &text) {
  return {text.data(), text.size()};
}

/// Calls `put` with the kind and the payload of an entry, whatever it is.
template <typename Put>
struct Putter {
  const Put &put;

  bool operator()(const Start &start) const {
    const StartPart part = {start.isContinued ? 1u : 0u,
                            start.pid,
                            start.startWallUs,
                            start.startMonotonicNs,
                            {Length(start.version), Length(start.build), Length(start.root), Length(start.bootId)}};
    return put(Kind::kStart, {{&part, sizeof part},
                              PieceOf(start.version),
                              PieceOf(start.build),
                              PieceOf(start.root),
                              PieceOf(start.bootId)});
  }
  bool operator()(const Observation &seen) const {
    const ObservationPart part = {seen.context, seen.pid, seen.uid, Length(seen.record)};
    return put(Kind::kObservation, {{&part, sizeof part}, PieceOf(seen.record)});
  }
  bool operator()(const Taken &taken) const {
    const TakenPart part = {taken.hash, taken.length};
    return put(Kind::kTaken, {{&part, sizeof part}});
  }
  bool operator()(const Timer &timer) const { return put(Kind::kTimer, {PieceOf(timer.name)}); }
  bool operator()(const Done &) const { return put(Kind::kDone, {}); }
  bool operator()(const ClockRead &read) const {
    const ClockPart part = {static_cast<uint32_t>(read.clock), 0, read.value};
    return put(Kind::kClock, {{&part, sizeof part}});
  }
  bool operator()(const HostAnswer &host) const {
    const uint32_t flags = (host.isSetting ? kIsSetting : 0) | (host.isCut ? kIsCut : 0);
    const HostPart part = {
        static_cast<uint32_t>(host.what), flags, host.status, Length(host.path), Length(host.content), 0};
    return put(Kind::kHost, {{&part, sizeof part}, PieceOf(host.path), PieceOf(host.content)});
  }
  bool operator()(const Event &event) const { return put(Kind::kEvent, {PieceOf(event.record)}); }
  bool operator()(const Drop &drop) const {
    const DropPart part = {{Length(drop.name), Length(drop.reason)}};
    return put(Kind::kDrop, {{&part, sizeof part}, PieceOf(drop.name), PieceOf(drop.reason)});
  }
  bool operator()(const Lost &lost) const {
    const LostPart part = {lost.count};
    return put(Kind::kLost, {{&part, sizeof part}});
  }
  bool operator()(const Stop &stop) const {
    const StopPart part = {stop.status};
    return put(Kind::kStop, {{&part, sizeof part}});
  }
};

}  // namespace

Writer::Writer(std::ostream *out, uint64_t serial, uint64_t seed) : out_(out), seed_(seed) {
  const FileHeader header = MakeFileHeader(serial, seed);
  out_->write(reinterpret_cast<const char *>(&header), sizeof header);
}

bool Writer::Put(const Front &front, std::span<const Piece> payload) {
  const size_t size = Padded(EntryLength(payload));
  if (size > kMaxEntrySize) return false;
  if (buffer_.size() < size / 8) buffer_.resize(size / 8);
  PutEntry(reinterpret_cast<std::byte *>(buffer_.data()), front, seed_, payload);
  out_->write(reinterpret_cast<const char *>(buffer_.data()), static_cast<std::streamsize>(size));
  return true;
}

bool Writer::TellThread(const Entry &entry, uint16_t *number) {
  *number = entry.threadNumber;
  if (*number == 0 && entry.thread.empty()) return true;
  if (*number == 0) {
    const auto known = numbers_.find(entry.thread);
    *number = known != numbers_.end() ? known->second : static_cast<uint16_t>(numbers_.size() + 1);
  }
  if (*number >= kMaxThreads) return false;
  if (names_.size() <= *number) names_.resize(size_t{*number} + 1);
  if (names_[*number] == entry.thread) return true;
  const Piece name = PieceOf(entry.thread);
  if (!Put({Kind::kName, *number, entry.monotonicNs, entry.wallUs}, {&name, 1})) return false;
  names_[*number] = entry.thread;
  numbers_.emplace(entry.thread, *number);
  return true;
}

bool Writer::Append(const Entry &entry) {
  if (const Start *start = std::get_if<Start>(&entry.what); start != nullptr && !start->isContinued) {
    names_.clear();
    numbers_.clear();
  }
  uint16_t thread = 0;
  if (!TellThread(entry, &thread)) return false;
  const auto put = [&](Kind kind, std::initializer_list<Piece> payload) {
    return Put({kind, thread, entry.monotonicNs, entry.wallUs}, {payload.begin(), payload.size()});
  };
  return std::visit(Putter<decltype(put)>{put}, entry.what);
}

}  // namespace flight
