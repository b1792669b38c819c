// Server-sent events. Any thread, each with a reader of its own.
#include <charconv>

#include "mgmtd/http/api.h"
#include "mgmtd/json/json.h"

namespace mgmtd {
namespace {

constexpr size_t kMostPartEvents = 200;
constexpr size_t kMostChanges = 1000;
constexpr size_t kMostPartBytes = 256 * 1024;

std::string Message(const char *kind, const Marks &marks, const std::string &data) {
  return "id: " + MarksText(marks) + "\nevent: " + kind + "\ndata: " + data + "\n\n";
}

std::vector<StoredEvent> EventsAfter(Feed *feed, int64_t after, Reader *reader) {
  try {
    return feed->EventsAfter(after, kMostPartEvents, reader);
  } catch (const StoreError &) {
    return {};
  }
}

std::vector<Problem> ProblemsAfter(Feed *feed, int64_t after, Reader *reader) {
  try {
    return feed->ProblemsAfter(after, kMostChanges, reader);
  } catch (const StoreError &) {
    return {};
  }
}

}  // namespace

std::string MarksText(const Marks &marks) {
  return std::to_string(marks.event) + "-" + std::to_string(marks.change);
}

bool ParseMarks(std::string_view text, Marks *out) {
  const char *end = text.data() + text.size();
  Marks marks;
  const auto [dash, error] = std::from_chars(text.data(), end, marks.event);
  if (error != std::errc() || dash == end || *dash != '-') return false;
  const auto [last, changeError] = std::from_chars(dash + 1, end, marks.change);
  if (changeError != std::errc() || last != end || marks.event < 0 || marks.change < 0) return false;
  *out = marks;
  return true;
}

StreamPart StreamAfter(Feed *feed, const Marks &from, Reader *reader) {
  const Marks newest = feed->Newest();
  StreamPart part{from, from, ""};
  // A store that began anew: what was seen before says nothing.
  if (from.event > newest.event || from.change > newest.change) {
    part.to = newest;
    part.text = Message("reset", newest, "{}");
    return part;
  }
  size_t told = 0;
  bool cut = false;
  for (const StoredEvent &event : EventsAfter(feed, from.event, reader)) {
    cut = part.text.size() > kMostPartBytes || ++told == kMostPartEvents;
    part.to.event = event.id;
    part.text += Message("event", part.to, Dump(ToJson(event)));
    if (cut) break;
  }
  // What neither memory nor the file has is passed over.
  if (!cut) part.to.event = std::max(part.to.event, newest.event);
  const std::vector<Problem> changed = ProblemsAfter(feed, from.change, reader);
  if (!changed.empty()) {
    part.to.change = changed.back().change;
    nlohmann::ordered_json open = nlohmann::ordered_json::object();
    const auto counts = feed->OpenCounts();
    for (size_t i = 0; i < counts.size(); ++i) {
      open[std::string(catalog::SeverityName(static_cast<catalog::Severity>(i)))] = counts[i];
    }
    part.text += Message("problems", part.to, Dump({{"changed", changed.size()}, {"counts", open}}));
  }
  if (changed.size() < kMostChanges) part.to.change = std::max(part.to.change, newest.change);
  return part;
}

}  // namespace mgmtd
