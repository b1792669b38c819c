// The catalogue: what every event and every observation id is, for people and for programs. Read from the texts beside
// this file when it is first asked for, constant from then on: any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace catalog {

/// Of a problem, how bad it is for the host; audits and clears are kInfo.
enum class Severity { kInfo, kWarning, kError, kCritical };
/// "info", "warning", "error", "critical".
std::string_view SeverityName(Severity severity);

/// An argument that says what an event is about. Of a list, names in double quotes parted by ", ", each name does.
struct Subject {
  std::string argument;
  bool list = false;
};

/// Arguments that must be equal: one of the event that ends a problem, and one of that problem. Of two lists, each name
/// of the first ends the problem of the same name.
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// A problem that an event ends.
struct Clearing {
  std::string problem;                ///< its whole name
  Pairs where;                        ///< none: whatever its arguments
  std::optional<Pairs> withoutNames;  ///< what counts instead when the list of the event that ends it is empty
};

/// One event that the daemon can post.
struct Event {
  std::string name;      ///< such as "amb.problem.storage.apd.start"
  std::string category;  ///< "problem", "audit" or "clear"
  std::string message;   ///< printf format of its text
  Severity severity = Severity::kInfo;
  std::string means;                   ///< what has happened
  std::string impact;                  ///< what it does to the host and its machines
  std::vector<std::string> action;     ///< what to do, step by step
  std::vector<std::string> arguments;  ///< a name for each conversion of `message`, in order
  std::vector<Subject> subject;        ///< empty: the host
  std::string from;                    ///< what it comes from besides `postedBy`; mostly ""
  std::vector<std::string> postedBy;   ///< ids of observations
  std::vector<Clearing> clears;        ///< what it ends
  std::vector<std::string> clearedBy;  ///< names of the events that end it
  bool clearedByHand = false;          ///< a problem that nothing ends
  std::vector<std::string> settings;   ///< what decides it, by its path in the host tree
  std::vector<std::string> tryLines;   ///< commands that have it posted, where no observation in `postedBy` does
};

/// One argument of an observation. `type` is "s" for text, or "i8" to "u64"; an integer of either sign will do.
struct Argument {
  std::string name, type;
  bool optional = false;
};

/// One way to have the daemon post: `before`, then the observation `times` times, `everyMs` apart. Words are as
/// `rynctl submit` takes them.
struct Try {
  std::vector<std::string> posts;                           ///< names of the events
  std::vector<std::pair<std::string, std::string>> tree;    ///< files of the host tree that must hold this
  std::optional<std::pair<std::string, std::string>> link;  ///< a symbolic link below the root, and what it points to
  std::vector<std::vector<std::string>> before;             ///< other observations: an id and its words each
  std::vector<std::string> words;
  int times = 1;
  int everyMs = 0;
};

/// One observation id that a correlator handles.
struct Observation {
  std::string id;                   ///< such as "ryn.storage.apd.start"
  std::string agent;                ///< the name of its agent
  bool anyArguments = false;        ///< whatever it carries is of no consequence
  std::vector<Argument> arguments;  ///< in order
  std::vector<std::string> posts;   ///< names of the events that it can lead to
  std::string note;                 ///< what else decides; mostly ""
  std::vector<std::string> settings;
  std::vector<Try> tries;  ///< at least one; together they post all of `posts` that can be shown
};

/// All events, ordered by name.
const std::vector<Event> &Events();
/// All observations, ordered by id.
const std::vector<Observation> &Observations();

/// The event called `name`, whole, or null.
const Event *FindEvent(std::string_view name);
/// The observation with the whole id `id`, or null.
const Observation *FindObservation(std::string_view id);

/// The identity of an event's kind, as the journal's MESSAGE_ID: the version 5 UUID of its name in this catalogue's
/// namespace, 32 lower-case hexadecimal digits.
std::string MessageId(std::string_view eventName);
/// That namespace.
constexpr std::string_view kMessageNamespace = "ff1a6cf8-1880-4683-908b-ac9a12e0e77f";

}  // namespace catalog
