#include "replay/reports/story.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>

#include "catalog/catalog.h"
#include "replay/reports/stepText.h"
#include "rynctl/escape.h"
#include "rynctl/showing/eventTime.h"

namespace replay {
namespace {

constexpr size_t kMostSettings = 8;  ///< shown of one step
constexpr uint64_t kLeastKey = 16;   ///< among numbers

/// Whether `text` holds `word` with no letter or digit beside it.
bool HoldsWord(std::string_view text, std::string_view word) {
  const auto isPart = [&](size_t at) {
    return at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])) != 0;
  };
  for (size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    if ((at == 0 || !isPart(at - 1)) && !isPart(at + word.size())) return true;
  }
  return false;
}

std::string SettingText(const HostAnswer &answer) {
  switch (answer.operation) {
    case HostOperation::kText:
      return answer.path + (answer.status == 0 ? " is \"" + answer.bytes + "\"" : " is not there");
    case HostOperation::kList: {
      std::string names = answer.bytes;
      std::ranges::replace(names, '\n', ' ');
      if (names.ends_with(' ')) names.pop_back();
      return answer.path + " holds " + (names.empty() ? "nothing" : names);
    }
    case HostOperation::kExists:
      return answer.path + (answer.status == 0 ? " is there" : " is not there");
    case HostOperation::kWrite:
      return answer.path + " was written";
    case HostOperation::kAction:
      return "done to the host: " + answer.path;
  }
  return "";
}

/// The names of a list such as `"Production", "Backup"`.
void AddNames(std::string_view list, std::vector<std::string> *names) {
  while (!list.empty()) {
    const size_t begin = list.find('"');
    const size_t end = begin == std::string_view::npos ? begin : list.find('"', begin + 1);
    if (end == std::string_view::npos) return;
    names->emplace_back(list.substr(begin + 1, end - begin - 1));
    list.remove_prefix(end + 1);
  }
}

void AddValue(const hosted::EventArgument &argument, bool isList, std::vector<std::string> *keys) {
  if (argument.kind == MsgFmtKind::kString) {
    if (isList || argument.text.starts_with('"')) return AddNames(argument.text, keys);
    if (!argument.text.empty()) keys->emplace_back(argument.text);
  } else if (argument.kind == MsgFmtKind::kSigned || argument.kind == MsgFmtKind::kUnsigned) {
    keys->push_back(std::to_string(argument.bits));
    char text[32];
    std::snprintf(text, sizeof text, "0x%lx", argument.bits);
    keys->emplace_back(text);
  }
}

}  // namespace

bool Scene::IsAbout(std::string_view key) const {
  if (std::ranges::find(arguments, key) != arguments.end()) return true;
  return std::ranges::any_of(reasons, [key](const std::string &reason) { return HoldsWord(reason, key); });
}

Scene ToScene(const PlayedStep &step) {
  Scene scene;
  scene.us = step.us;
  if (step.what.agent != nullptr) scene.agent = step.what.agent->name;
  scene.id = StepId(step.what);
  scene.text = StepText(step.what);
  scene.arguments = StepArguments(step.what);
  scene.reasons = step.reasons;
  std::set<std::string> told;
  for (const HostAnswer &answer : step.asked) {
    std::string text = SettingText(answer);
    if (told.insert(text).second) scene.settings.push_back(std::move(text));
  }
  for (const Outcome &outcome : step.outcomes) {
    const bool isReplayed = outcome.kind != Outcome::Kind::kMissing;
    std::string post = isReplayed ? outcome.replayed.name : outcome.recorded.name;
    if (!DropReasonOf(outcome).empty()) post += " dropped (" + DropReasonOf(outcome) + ")";
    scene.posts.push_back(std::move(post));
    if (isReplayed && !outcome.replayed.settled.empty() && step.what.kind == Step::Kind::kWake) {
      scene.text = outcome.replayed.settled + " has settled";
    }
  }
  // A handler that cannot read its arguments ends without a word.
  if (scene.posts.empty()) {
    for (std::string &fault : ArgumentFaults(step.what)) scene.reasons.push_back(std::move(fault));
  }
  return scene;
}

std::vector<std::string> KeysOf(const eventrecord::DecodedEvent &event, const Scene &scene) {
  std::vector<std::string> keys;
  // What the observation that it came of carried, too; small numbers are about anything.
  for (const hosted::EventArgument &argument : event.arguments) {
    if (argument.kind != MsgFmtKind::kString && argument.bits < kLeastKey) continue;
    std::vector<std::string> values;
    AddValue(argument, false, &values);
    for (std::string &value : values) {
      if (std::ranges::find(scene.arguments, value) != scene.arguments.end()) keys.push_back(std::move(value));
    }
  }
  const catalog::Event *entry = catalog::FindEvent(event.name);
  if (entry != nullptr) {
    for (size_t i = 0; i < event.arguments.size() && i < entry->arguments.size(); ++i) {
      const auto subject = std::ranges::find(entry->subject, entry->arguments[i], &catalog::Subject::argument);
      if (subject != entry->subject.end()) AddValue(event.arguments[i], subject->list, &keys);
    }
  }
  if (keys.empty()) {
    for (const hosted::EventArgument &argument : event.arguments) {
      if (argument.kind == MsgFmtKind::kString) AddValue(argument, false, &keys);
    }
  }
  return keys;
}

void PrintScene(const Scene &scene, const std::string &indent, std::ostream *out) {
  using rynctl::EscapeForTerminal;
  *out << indent << rynctl::LocalTime(scene.us, false) << "  " << scene.text;
  for (const std::string &post : scene.posts) *out << "  -> " << EscapeForTerminal(post);
  *out << '\n';
  for (const std::string &reason : scene.reasons) *out << indent << "  - " << EscapeForTerminal(reason) << '\n';
  for (size_t i = 0; i < std::min(scene.settings.size(), kMostSettings); ++i) {
    *out << indent << "  - " << EscapeForTerminal(scene.settings[i]) << '\n';
  }
  if (scene.settings.size() > kMostSettings) {
    *out << indent << "  - ... " << scene.settings.size() - kMostSettings << " more answers of the host\n";
  }
}

}  // namespace replay
