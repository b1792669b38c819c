#include "replay/reports/why.h"

#include <algorithm>

#include "catalog/catalog.h"
#include "replay/reports/stepText.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventPrinter.h"
#include "rynctl/showing/eventTime.h"

namespace replay {
namespace {

constexpr size_t kMostScenes = 20'000;  ///< kept of each agent
constexpr size_t kMostEarlier = 12;     ///< shown

uint64_t Distance(uint64_t a, uint64_t b) {
  return a > b ? a - b : b - a;
}

bool HasPosted(const Scene &scene, const std::string &name) {
  return std::ranges::find(scene.posts, name) != scene.posts.end();
}

}  // namespace

bool Why::IsWanted(const Outcome &outcome, const eventrecord::DecodedEvent &event) const {
  if (outcome.kind == Outcome::Kind::kMissing || !DropReasonOf(outcome).empty()) return false;
  if (wanted_.sequence != 0) return event.sequence == wanted_.sequence;
  if (event.name != wanted_.name) return false;
  return !answer_ || !wanted_.atUs || Distance(event.microseconds, *wanted_.atUs) <= distanceUs_;
}

void Why::Played(const PlayedStep &step) {
  const Scene scene = ToScene(step);
  for (const Outcome &outcome : step.outcomes) {
    const eventrecord::DecodedEvent event = EventOf(outcome);
    if (IsWanted(outcome, event)) Keep(outcome, event, scene);
  }
  std::deque<Scene> &scenes = scenes_[scene.agent];
  scenes.push_back(scene);
  if (scenes.size() > kMostScenes) scenes.pop_front();
}

void Why::Keep(const Outcome &outcome, const eventrecord::DecodedEvent &event, const Scene &scene) {
  Answer answer;
  answer.heading = "event " + std::to_string(event.sequence) + "  " + rynctl::LocalTime(event.microseconds, true) +
                   "  " + rynctl::EscapeForTerminal(event.name);
  if (outcome.kind == Outcome::Kind::kNew || outcome.kind == Outcome::Kind::kChanged) {
    answer.heading += outcome.kind == Outcome::Kind::kNew ? "  (not recorded)" : "  (recorded with other arguments)";
  }
  answer.text = rynctl::EscapeForTerminal(event.text);
  answer.scene = scene;
  std::vector<std::string> keys = KeysOf(event, scene);
  // What has settled says what it is about: "uplink hynic0: link down".
  if (const std::string &settled = outcome.replayed.settled; settled.starts_with("uplink ")) {
    keys.push_back(settled.substr(7, settled.rfind(": ") - 7));
  }
  const std::deque<Scene> &scenes = scenes_[scene.agent];
  for (auto earlier = scenes.rbegin(); earlier != scenes.rend(); ++earlier) {
    const bool isAbout = std::ranges::any_of(keys, [&](const std::string &key) { return earlier->IsAbout(key); });
    if (!isAbout) continue;
    // What led to the one before has been told by that.
    if (HasPosted(*earlier, event.name)) break;
    if (answer.earlier.size() < kMostEarlier) {
      answer.earlier.push_back(*earlier);
    } else {
      ++answer.further;
    }
  }
  distanceUs_ = wanted_.atUs ? Distance(event.microseconds, *wanted_.atUs) : 0;
  answer_ = std::move(answer);
}

bool Why::Print(std::ostream *out) const {
  if (!answer_) return false;
  *out << answer_->heading << '\n' << "  " << answer_->text << '\n';
  *out << "posted by " << (answer_->scene.agent.empty() ? "a timer" : "agent " + answer_->scene.agent) << " at\n";
  PrintScene(answer_->scene, "  ", out);
  if (answer_->earlier.empty()) return true;
  *out << "after\n";
  for (const Scene &scene : answer_->earlier) PrintScene(scene, "  ", out);
  if (answer_->further > 0) *out << "  ... and " << answer_->further << " earlier\n";
  return true;
}

WhyNot::WhyNot(std::string name, std::string subject) : name_(std::move(name)), subject_(std::move(subject)) {
  const catalog::Event *event = catalog::FindEvent(name_);
  if (event != nullptr) ids_ = event->postedBy;
}

void WhyNot::Played(const PlayedStep &step) {
  constexpr size_t kMostStopped = 10;
  const bool isOfIt = std::ranges::find(ids_, StepId(step.what)) != ids_.end();
  const bool posts = std::ranges::any_of(step.outcomes, [&](const Outcome &outcome) {
    return outcome.replayed.name == name_ && outcome.kind != Outcome::Kind::kMissing;
  });
  if (!isOfIt && !posts && step.reasons.empty()) return;
  const Scene scene = ToScene(step);
  const bool isAbout = subject_.empty() || scene.IsAbout(subject_);
  seen_ += isOfIt && isAbout ? 1 : 0;
  seenOfOthers_ += isOfIt && !isAbout ? 1 : 0;
  for (const Outcome &outcome : step.outcomes) {
    if (outcome.replayed.name != name_ || outcome.kind == Outcome::Kind::kMissing) continue;
    const std::vector<std::string> keys = KeysOf(EventOf(outcome), scene);
    const bool isEventAbout = isAbout || std::ranges::find(keys, subject_) != keys.end();
    if (!isEventAbout) continue;
    if (!DropReasonOf(outcome).empty()) {
      ++dropped_;
    } else {
      ++came_;
      lastCame_ = scene;
    }
  }
  const bool isStep = isOfIt || (!scene.agent.empty() && !subject_.empty() && step.what.kind == Step::Kind::kWake);
  if (!isStep || !isAbout || HasPosted(scene, name_)) return;
  stopped_.push_back(scene);
  if (stopped_.size() > kMostStopped) stopped_.pop_front();
}

void WhyNot::Print(std::ostream *out) const {
  const std::string about = subject_.empty() ? "" : " about " + rynctl::EscapeForTerminal(subject_);
  if (came_ > 0) {
    *out << name_ << about << " came " << came_ << (came_ == 1 ? " time" : " times") << ", last at\n";
    PrintScene(lastCame_, "  ", out);
  } else {
    *out << name_ << about << " did not come.\n";
  }
  if (dropped_ > 0) *out << dropped_ << " of them were dropped.\n";
  if (seen_ == 0) {
    *out << (ids_.empty() ? "No observation leads to it.\n" : "No observation" + about + " came that leads to it:\n");
    for (const std::string &id : ids_) *out << "  " << id << '\n';
    if (seenOfOthers_ > 0) *out << seenOfOthers_ << " of these came that are about something else.\n";
  }
  if (stopped_.empty()) return;
  *out << (came_ > 0 ? "These did not lead to it:\n" : "These came, and stopped here:\n");
  for (const Scene &scene : stopped_) PrintScene(scene, "  ", out);
}

}  // namespace replay
