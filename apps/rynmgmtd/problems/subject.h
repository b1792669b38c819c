// What an event is about, by its catalogue entry. Stateless: any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "catalog/catalog.h"

namespace mgmtd {

/// Names and values of an event's arguments, in order.
using NamedValues = std::vector<std::pair<std::string, std::string>>;

/// The names of a list: "A", "B" in double quotes and parted by ", "; text without quotes is one name; "" is none.
std::vector<std::string> NamesOfList(std::string_view text);

/// What `argument` of an event says: of a list of its subject each name, else the value alone; nothing when it has no
/// such argument.
std::vector<std::string> ValuesOf(const catalog::Event &entry, const NamedValues &arguments,
                                  const std::string &argument);

/// The subjects of an event, each by the names of the arguments: one, or one for each name of its list, of an empty
/// list one whose name is "". 4096 at most.
std::vector<NamedValues> SubjectsOf(const catalog::Event &entry, const NamedValues &arguments);

/// A subject in words: its values, ", " between; those that say nothing left out.
std::string SubjectText(const NamedValues &subject);

}  // namespace mgmtd
