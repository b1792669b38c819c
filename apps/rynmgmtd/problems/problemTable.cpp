// Look-ups by keys made of texts; a NUL parts them, as no text of a record has one.
#include "mgmtd/problems/problemTable.h"

#include <algorithm>

namespace mgmtd {
namespace {

std::string PartKey(const std::string &problem, const std::string &argument, const std::string &value) {
  return problem + '\0' + argument + '\0' + value;
}

std::string IdentityKey(const std::string &name, const NamedValues &about) {
  std::string key = name;
  for (const auto &[argument, value] : about) key.append(1, '\0').append(argument).append(1, '\0').append(value);
  return key;
}

const std::string *PartOf(const Problem &problem, const std::string &argument) {
  for (const auto &[name, value] : problem.about) {
    if (name == argument) return &value;
  }
  return nullptr;
}

}  // namespace

bool OpensProblem(const catalog::Event &entry) {
  return entry.category == "problem" && entry.clears.empty();
}

void ProblemTable::Load(std::vector<Problem> open, int64_t lastId, int64_t lastChange) {
  open_.clear();
  byIdentity_.clear();
  byPart_.clear();
  ranks_.clear();
  lastId_ = lastId;
  lastChange_ = lastChange;
  for (Problem &problem : open) Insert(std::move(problem));
}

std::vector<Problem> ProblemTable::Apply(const Happening &event) {
  std::vector<Problem> changed;
  for (const catalog::Clearing &clearing : event.entry->clears) EndCleared(event, clearing, &changed);
  if (OpensProblem(*event.entry)) OpenOrRepeat(event, &changed);
  return changed;
}

void ProblemTable::OpenOrRepeat(const Happening &event, std::vector<Problem> *changed) {
  for (const NamedValues &about : SubjectsOf(*event.entry, event.arguments)) {
    Problem problem;
    const auto known = byIdentity_.find(IdentityKey(event.entry->name, about));
    if (known != byIdentity_.end()) {
      problem = std::move(open_.at(known->second));
      ranks_.erase(RankOf(problem));
      open_.erase(problem.id);
      if (problem.lastEventId != event.eventId) ++problem.times;  // a list may name one twice
    } else {
      problem.id = ++lastId_;
      problem.eventId = event.eventId;
      problem.name = event.entry->name;
      problem.about = about;
      problem.subject = SubjectText(about);
      problem.severity = event.entry->severity;
      problem.firstUs = event.timeUs;
      problem.times = 1;
    }
    problem.change = ++lastChange_;
    problem.lastEventId = event.eventId;
    problem.lastUs = event.timeUs;
    problem.text = event.text;
    problem.hostUuid = event.hostUuid;
    changed->push_back(problem);
    Insert(std::move(problem));
    if (open_.size() <= kMostOpen) continue;
    ++forgotten_;
    End(std::get<2>(*ranks_.begin()), event.timeUs,
        "forgotten: more than " + std::to_string(kMostOpen) + " problems are open", 0, changed);
  }
}

void ProblemTable::EndCleared(const Happening &event, const catalog::Clearing &clearing,
                              std::vector<Problem> *changed) {
  const catalog::Pairs *pairs = &clearing.where;
  const bool nameless = std::ranges::any_of(
      clearing.where, [&](const auto &pair) { return ValuesOf(*event.entry, event.arguments, pair.first).empty(); });
  if (nameless) {
    if (!clearing.withoutNames) return;
    pairs = &*clearing.withoutNames;
  }
  for (const int64_t id : Matching(event, clearing.problem, *pairs)) {
    End(id, event.timeUs, event.entry->name, event.eventId, changed);
  }
}

/// The open problems called `problem` whose arguments equal those of `event`.
ProblemTable::Ids ProblemTable::Matching(const Happening &event, const std::string &problem,
                                         const catalog::Pairs &pairs) const {
  Ids ids;
  const auto take = [&](const std::string &key) {
    if (const auto part = byPart_.find(key); part != byPart_.end())
      ids.insert(part->second.begin(), part->second.end());
  };
  if (pairs.empty()) take(problem);
  for (size_t i = 0; i < pairs.size(); ++i) {
    const std::string &theirs = pairs[i].second;
    const std::vector<std::string> values = ValuesOf(*event.entry, event.arguments, pairs[i].first);
    if (i == 0) {
      for (const std::string &value : values) take(PartKey(problem, theirs, value));
      continue;
    }
    std::erase_if(ids, [&](int64_t id) {
      const std::string *part = PartOf(open_.at(id), theirs);
      return part == nullptr || std::ranges::find(values, *part) == values.end();
    });
  }
  return ids;
}

std::vector<Problem> ProblemTable::EndByHand(int64_t eventId, const std::string &subject, const std::string &user,
                                             int64_t nowUs) {
  Ids ids;
  for (const auto &[id, problem] : open_) {
    const bool meant = problem.eventId == eventId || problem.lastEventId == eventId;
    if (meant && (subject.empty() || problem.subject == subject)) ids.insert(id);
  }
  std::vector<Problem> changed;
  for (const int64_t id : ids) End(id, nowUs, "by hand: " + user, 0, &changed);
  return changed;
}

std::vector<Problem> ProblemTable::Open() const {
  std::vector<Problem> all;
  all.reserve(open_.size());
  for (const auto &[id, problem] : open_) all.push_back(problem);
  return all;
}

void ProblemTable::Insert(Problem problem) {
  byIdentity_[IdentityKey(problem.name, problem.about)] = problem.id;
  byPart_[problem.name].insert(problem.id);
  for (const auto &[argument, value] : problem.about) {
    byPart_[PartKey(problem.name, argument, value)].insert(problem.id);
  }
  ranks_.insert(RankOf(problem));
  const int64_t id = problem.id;
  open_.insert_or_assign(id, std::move(problem));
}

void ProblemTable::End(int64_t id, int64_t atUs, const std::string &by, int64_t byEvent,
                       std::vector<Problem> *changed) {
  Problem problem = std::move(open_.at(id));
  open_.erase(id);
  ranks_.erase(RankOf(problem));
  byIdentity_.erase(IdentityKey(problem.name, problem.about));
  const auto forget = [&](const std::string &key) {
    const auto part = byPart_.find(key);
    part->second.erase(id);
    if (part->second.empty()) byPart_.erase(part);
  };
  forget(problem.name);
  for (const auto &[argument, value] : problem.about) forget(PartKey(problem.name, argument, value));
  problem.change = ++lastChange_;
  problem.endedUs = std::max<int64_t>(1, atUs);
  problem.endedBy = by;
  problem.endedByEvent = byEvent;
  changed->push_back(std::move(problem));
}

/// Less severe goes first, then what was told longest ago.
ProblemTable::Rank ProblemTable::RankOf(const Problem &problem) {
  return {problem.severity, problem.lastEventId, problem.id};
}

}  // namespace mgmtd
