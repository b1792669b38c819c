// Lists are taken apart, and their names combined with what else the subject has.
#include "mgmtd/problems/subject.h"

namespace mgmtd {
namespace {

constexpr size_t kMostSubjects = 4096;

const std::string *Find(const NamedValues &arguments, const std::string &name) {
  for (const auto &[argument, value] : arguments) {
    if (argument == name) return &value;
  }
  return nullptr;
}

}  // namespace

std::vector<std::string> NamesOfList(std::string_view text) {
  if (text.empty()) return {};
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return {std::string(text)};
  std::vector<std::string> names;
  text = text.substr(1, text.size() - 2);
  constexpr std::string_view kBetween = "\", \"";
  while (true) {
    const size_t end = text.find(kBetween);
    names.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return names;
    text.remove_prefix(end + kBetween.size());
  }
}

std::vector<std::string> ValuesOf(const catalog::Event &entry, const NamedValues &arguments,
                                  const std::string &argument) {
  const std::string *value = Find(arguments, argument);
  if (value == nullptr) return {};
  for (const catalog::Subject &subject : entry.subject) {
    if (subject.list && subject.argument == argument) return NamesOfList(*value);
  }
  return {*value};
}

std::vector<NamedValues> SubjectsOf(const catalog::Event &entry, const NamedValues &arguments) {
  std::vector<NamedValues> subjects = {{}};
  for (const catalog::Subject &part : entry.subject) {
    std::vector<std::string> values = ValuesOf(entry, arguments, part.argument);
    if (values.empty()) values.emplace_back();
    std::vector<NamedValues> longer;
    for (const NamedValues &subject : subjects) {
      for (const std::string &value : values) {
        if (longer.size() == kMostSubjects) break;
        longer.push_back(subject);
        longer.back().emplace_back(part.argument, value);
      }
    }
    subjects = std::move(longer);
  }
  return subjects;
}

std::string SubjectText(const NamedValues &subject) {
  std::string text;
  for (const auto &[name, value] : subject) {
    if (!value.empty()) text += (text.empty() ? "" : ", ") + value;
  }
  return text;
}

}  // namespace mgmtd
