#include "replay/recording/player.h"

#include <ctime>

#include "core/basics/clock.h"

namespace replay {
namespace {

constexpr size_t kMostNotes = 20;
constexpr int64_t kTimersGraceNs = 2 * rynd::kNsPerSecond;  ///< that a recorded timer may have run late

// The world calls plain functions: it is the only one of its process, and so is who listens to it.
std::vector<std::string> *heardReasons = nullptr;
std::vector<HostAnswer> *heardAnswers = nullptr;
uint64_t unknownAnswers = 0;
std::string firstUnknown;

void HearAnswer(const HostAnswer &answer, bool isKnown) {
  if (heardAnswers != nullptr) heardAnswers->push_back(answer);
  if (!isKnown && ++unknownAnswers == 1) firstUnknown = answer.path;
}

void Sleep(int64_t ns) {
  const timespec time{ns / rynd::kNsPerSecond, ns % rynd::kNsPerSecond};
  nanosleep(&time, nullptr);
}

int64_t RealNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * rynd::kNsPerSecond + now.tv_nsec;
}

}  // namespace

void Player::Listen() {
  World &world = TheWorld();
  world.HearSteps([](void *player, const Step &what,
                     std::vector<Post> posts) { static_cast<Player *>(player)->Ended(what, std::move(posts)); },
                  this);
  if (listener_->WantsReasons()) {
    heardReasons = &reasons_;
    heardAnswers = &asked_;
    world.talk.HearBy([](const std::string &text) { heardReasons->push_back(text); });
  }
  for (const auto &[path, text] : options_.settings) world.host.Fix(path, text);
}

Totals Player::Play() {
  Listen();
  int64_t lastNs = 0;
  try {
    for (RecordedStep step; source_->Next(&step);) {
      if (options_.untilUs && step.beginUs > *options_.untilUs) break;
      if (options_.takesItsTime) WaitFor(step);
      PlayStep(&step);
      lastNs = std::max(lastNs, step.beginNs);
    }
    if (IsWhatIf() || !source_->TellsEvents()) TheWorld().RunUntil(lastNs);
  } catch (const Panicked &panicked) {
    totals_.notes.push_back("The daemon ends itself here: " + panicked.text);
  }
  for (std::string &note : source_->Missing()) totals_.notes.push_back(std::move(note));
  if (unknownAnswers > 0) {
    totals_.notes.push_back("The recording does not hold " + std::to_string(unknownAnswers) +
                            (unknownAnswers == 1 ? " answer" : " answers") + " of the host, first of " + firstUnknown);
  }
  if (totals_.notes.size() > kMostNotes) totals_.notes.resize(kMostNotes);
  return std::move(totals_);
}

void Player::PlayStep(RecordedStep *step) {
  World &world = TheWorld();
  switch (step->kind) {
    case RecordedStep::Kind::kStart:
      world.clock.Set(step->beginNs, step->beginUs);
      world.host.Tell(step->answers);
      world.Start();
      world.host.HearBy(HearAnswer);  // what is asked earlier has an answer that the agents know for missing
      break;
    case RecordedStep::Kind::kArrival:
      if (!step->answers.empty()) world.host.Tell(step->answers);
      world.Observe(*step->record, step->beginNs);
      break;
    default:
      PlayRecorded(step);
  }
}

bool Player::PlayTold(const RecordedStep &step) {
  World &world = TheWorld();
  if (step.kind == RecordedStep::Kind::kTimer) {
    return IsWhatIf() ? world.RunTimerIfDue(step.timer) : world.RunTimer(step.timer);
  }
  const size_t place = world.FindAgent(step.agent);
  if (place == SIZE_MAX) return false;
  if (step.kind == RecordedStep::Kind::kTaken) return step.record != nullptr && world.Handle(place, *step.record);
  if (IsWhatIf() && !IsWoken(world.agents[place])) return false;
  world.WakeAgent(place);
  return true;
}

void Player::PlayRecorded(RecordedStep *step) {
  // With a changed setting, timers may be due that never ran.
  if (IsWhatIf()) TheWorld().RunUntil(step->beginNs - kTimersGraceNs);
  Tell(*step);
  current_ = step;
  if (!PlayTold(*step)) {
    const size_t place = TheWorld().FindAgent(step->agent);
    const bool isTimer = step->kind == RecordedStep::Kind::kTimer;
    Ended({isTimer                                    ? Step::Kind::kTimer
           : step->kind == RecordedStep::Kind::kTaken ? Step::Kind::kObservation
                                                      : Step::Kind::kWake,
           place == SIZE_MAX ? nullptr : &TheWorld().agents[place],
           step->record == nullptr ? std::string_view() : std::string_view(*step->record), step->timer},
          {});
  }
  current_ = nullptr;
}

void Player::Tell(const RecordedStep &step) {
  World &world = TheWorld();
  world.clock.Set(step.beginNs, step.beginUs);
  world.clock.Tell(step.clocks);
  world.host.Tell(step.answers);
  std::vector<RateRuling> rulings;
  for (const RecordedPost &post : step.posts) rulings.push_back({post.name, post.dropReason != "rate"});
  world.posts.Tell(std::move(rulings));
}

void Player::Ended(const Step &what, std::vector<Post> posts) {
  std::vector<Outcome> outcomes;
  totals_.observations += what.kind == Step::Kind::kObservation ? 1 : 0;
  totals_.events += posts.size();
  if (current_ != nullptr && current_->hasEnded) {
    outcomes = Compare(std::move(posts), std::move(current_->posts), !source_->IsContinued());
  } else {
    const bool isNew = current_ == nullptr && source_->TellsEvents();
    for (Post &post : posts) {
      outcomes.push_back({isNew ? Outcome::Kind::kNew : Outcome::Kind::kNotKnown, std::move(post), {}});
    }
  }
  Count(outcomes);
  listener_->Played({what, TheWorld().clock.WallUs(), std::move(outcomes), reasons_, asked_});
  reasons_.clear();
  asked_.clear();
}

void Player::Count(const std::vector<Outcome> &outcomes) {
  for (const Outcome &outcome : outcomes) {
    totals_.equal += outcome.kind == Outcome::Kind::kEqual ? 1 : 0;
    totals_.changed += outcome.kind == Outcome::Kind::kChanged ? 1 : 0;
    totals_.added += outcome.kind == Outcome::Kind::kNew ? 1 : 0;
    totals_.missing += outcome.kind == Outcome::Kind::kMissing ? 1 : 0;
  }
}

void Player::WaitFor(const RecordedStep &step) {
  if (firstNs_ == 0) {
    firstNs_ = step.beginNs;
    startedNs_ = RealNs();
  }
  const int64_t leftNs = (step.beginNs - firstNs_) - (RealNs() - startedNs_);
  if (leftNs > 0) Sleep(leftNs);
}

}  // namespace replay
