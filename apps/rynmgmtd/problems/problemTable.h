// What is wrong now: which event opens, repeats and ends which problem, by the catalogue. Told everything, times too;
// one thread.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "mgmtd/problems/problem.h"
#include "mgmtd/problems/subject.h"

namespace mgmtd {

/// An event as problems see it: whole, and of a name that the catalogue has.
struct Happening {
  const catalog::Event *entry = nullptr;
  int64_t eventId = 0;
  int64_t timeUs = 0;
  NamedValues arguments;
  std::string text, hostUuid;
};

/// Whether an event opens a problem: one of the problem namespace does, unless it only tells that another is over.
bool OpensProblem(const catalog::Event &entry);

/// The open problems. A problem is the same as another one when name and subject are; all arguments that an ending
/// event compares stand in the subject.
class ProblemTable {
 public:
  /// Above so many the least severe that was silent for longest is closed as forgotten.
  static constexpr size_t kMostOpen = 20'000;

  /// Start from these, with numbers above `lastId` and `lastChange`.
  void Load(std::vector<Problem> open, int64_t lastId, int64_t lastChange);

  /// What `event` changed, as it is now, in the order of the changes.
  std::vector<Problem> Apply(const Happening &event);
  /// End the open problems that the event `eventId` opened or was the last to repeat; with `subject`, only the one
  /// about that.
  std::vector<Problem> EndByHand(int64_t eventId, const std::string &subject, const std::string &user, int64_t nowUs);

  std::vector<Problem> Open() const;
  size_t OpenCount() const { return open_.size(); }
  uint64_t Forgotten() const { return forgotten_; }
  int64_t LastId() const { return lastId_; }
  int64_t LastChange() const { return lastChange_; }

 private:
  using Ids = std::set<int64_t>;
  using Rank = std::tuple<catalog::Severity, int64_t, int64_t>;

  void OpenOrRepeat(const Happening &event, std::vector<Problem> *changed);
  void EndCleared(const Happening &event, const catalog::Clearing &clearing, std::vector<Problem> *changed);
  Ids Matching(const Happening &event, const std::string &problem, const catalog::Pairs &pairs) const;
  void Insert(Problem problem);
  void End(int64_t id, int64_t atUs, const std::string &by, int64_t byEvent, std::vector<Problem> *changed);
  static Rank RankOf(const Problem &problem);

  std::unordered_map<int64_t, Problem> open_;            ///< by id
  std::unordered_map<std::string, int64_t> byIdentity_;  ///< name and subject
  std::unordered_map<std::string, Ids> byPart_;          ///< name alone, and name with one argument's value
  std::set<Rank> ranks_;                                 ///< the first is the first to be forgotten
  int64_t lastId_ = 0;
  int64_t lastChange_ = 0;
  uint64_t forgotten_ = 0;
};

}  // namespace mgmtd
