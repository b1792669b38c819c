// Names as people shorten and mistype them. Stateless: any thread.
#include "catalog/find.h"

#include "text/suggest.h"

namespace catalog {
namespace {

constexpr size_t kMostSuggestions = 3;

/// A name and its shorter forms: without "amb." or "ryn.", and an event's without its category.
std::vector<std::string_view> FormsOf(std::string_view name) {
  std::vector<std::string_view> forms = {name, name.substr(name.find('.') + 1)};
  if (name.starts_with("amb.")) forms.push_back(forms.back().substr(forms.back().find('.') + 1));
  return forms;
}

bool IsFormOf(std::string_view word, std::string_view name) {
  for (const std::string_view form : FormsOf(name)) {
    if (form == word) return true;
  }
  return false;
}

void AddForms(std::string_view name, std::vector<text::Known> *known) {
  for (const std::string_view form : FormsOf(name)) known->push_back({name, form});
}

/// Take the only entry that `fits`, of events or else of observations; when there are several, `candidates`.
template <typename Fits>
void TakeOnly(Fits fits, Found *found) {
  std::vector<const Event *> events;
  std::vector<const Observation *> observations;
  for (const Event &event : Events()) {
    if (fits(event.name)) events.push_back(&event);
  }
  for (const Observation &observation : Observations()) {
    if (fits(observation.id)) observations.push_back(&observation);
  }
  if (events.size() == 1) {
    found->event = events[0];
  } else if (events.empty() && observations.size() == 1) {
    found->observation = observations[0];
  } else {
    for (const Event *event : events) found->candidates.push_back(event->name);
    if (events.empty()) {
      for (const Observation *observation : observations) found->candidates.push_back(observation->id);
    }
  }
}

}  // namespace

bool Matches(std::string_view name, std::string_view prefix) {
  for (const std::string_view form : FormsOf(name)) {
    if (form.starts_with(prefix)) return true;
  }
  return false;
}

Found Find(std::string_view name) {
  Found found;
  if (name.empty()) return found;
  found.event = FindEvent(name);
  if (found.event == nullptr) found.observation = FindObservation(name);
  const auto any = [&] { return found.event != nullptr || found.observation != nullptr || !found.candidates.empty(); };
  if (!any()) TakeOnly([name](std::string_view full) { return IsFormOf(name, full); }, &found);
  if (!any()) TakeOnly([name](std::string_view full) { return Matches(full, name); }, &found);
  if (any()) return found;
  std::vector<text::Known> known;
  for (const Event &event : Events()) AddForms(event.name, &known);
  for (const Observation &observation : Observations()) AddForms(observation.id, &known);
  found.suggestions = text::Suggest(name, known, kMostSuggestions);
  return found;
}

std::vector<std::string> SuggestObservations(std::string_view id) {
  std::vector<text::Known> known;
  for (const Observation &observation : Observations()) AddForms(observation.id, &known);
  return text::Suggest(id, known, kMostSuggestions);
}

}  // namespace catalog
