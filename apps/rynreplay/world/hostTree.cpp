// Stands in for what the hosted platform and the daemon look up on the machine that they run on.
#include "replay/world/hostTree.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "core/basics/hostFolders.h"
#include "hosted/host/actionsLog.h"
#include "hosted/host/hostTree.h"
#include "hosted/host/machine.h"
#include "replay/world/world.h"

namespace replay {

void HostTree::Fix(const std::string &path, const std::string &text) {
  fixed_[path] = text;
}

void HostTree::Put(const std::string &path, const std::string &text) {
  files_[path] = text;
  known_.erase({HostOperation::kText, path});
  known_.erase({HostOperation::kExists, path});
}

void HostTree::Remove(const std::string &path) {
  files_.erase(path);
}

void HostTree::Tell(std::vector<HostAnswer> answers) {
  told_ = std::move(answers);
  isTaken_.assign(told_.size(), false);
  for (const HostAnswer &answer : told_) {
    if (answer.operation == HostOperation::kAction) continue;
    const bool isText = answer.operation == HostOperation::kText || answer.operation == HostOperation::kWrite;
    if (isText && answer.status == 0) {
      Put(answer.path, answer.bytes);
    } else if (answer.operation != HostOperation::kWrite) {
      if (answer.status != 0) files_.erase(answer.path);
      known_[{answer.operation, answer.path}] = answer;
    }
  }
}

const HostAnswer *HostTree::TakeTold(HostOperation operation, std::string_view path) {
  for (size_t i = 0; i < told_.size(); ++i) {
    if (isTaken_[i] || told_[i].operation != operation || told_[i].path != path) continue;
    isTaken_[i] = true;
    return &told_[i];
  }
  return nullptr;
}

HostAnswer HostTree::FromFiles(HostOperation operation, const std::string &path) const {
  HostAnswer answer{operation, path, ENOENT, ""};
  const std::string folder = path + "/";
  for (const auto *files : {&fixed_, &files_}) {
    if (const auto file = files->find(path); file != files->end()) {
      answer.status = operation == HostOperation::kList ? ENOTDIR : 0;
      if (operation == HostOperation::kText) answer.bytes = file->second;
      return answer;
    }
    for (auto below = files->lower_bound(folder); below != files->end() && below->first.starts_with(folder); ++below) {
      answer.status = operation == HostOperation::kText ? EISDIR : 0;
      const std::string name =
          below->first.substr(folder.size(), below->first.find('/', folder.size()) - folder.size());
      if (operation == HostOperation::kList && !("\n" + answer.bytes).ends_with("\n" + name + "\n")) {
        answer.bytes += name + "\n";
      }
    }
  }
  if (operation == HostOperation::kList) answer.status = 0;  // a folder that is not there holds nothing
  return answer;
}

HostAnswer HostTree::Ask(HostOperation operation, std::string_view path) {
  const std::string asked(path);
  const HostAnswer *told = TakeTold(operation, path);
  HostAnswer answer;
  bool isKnown = true;
  if (fixed_.contains(asked)) {
    answer = FromFiles(operation, asked);
  } else if (told != nullptr) {
    answer = *told;
  } else if (const auto known = known_.find({operation, asked}); known != known_.end()) {
    answer = known->second;
  } else {
    answer = FromFiles(operation, asked);
    isKnown = files_.contains(asked);
  }
  if (heard_ != nullptr) heard_(answer, isKnown);
  return answer;
}

int HostTree::Do(HostOperation operation, std::string_view path, std::string_view bytes) {
  const HostAnswer *told = TakeTold(operation, path);
  const HostAnswer answer{operation, std::string(path), told == nullptr ? 0 : told->status, std::string(bytes)};
  if (operation == HostOperation::kWrite && answer.status == 0) Put(answer.path, answer.bytes);
  if (heard_ != nullptr) heard_(answer, true);
  return answer.status;
}

}  // namespace replay

namespace hosted {

using replay::HostAnswer;
using replay::HostOperation;
using replay::TheWorld;

namespace {

/// What a path component stands for: the reverse of HostComponent.
std::string DecodeComponent(std::string_view component) {
  std::string name;
  for (size_t i = 0; component != "%" && i < component.size(); ++i) {
    if (component[i] == '%' && i + 2 < component.size()) {
      int code = 0;
      std::from_chars(component.data() + i + 1, component.data() + i + 3, code, 16);
      name += static_cast<char>(code);
      i += 2;
    } else {
      name += component[i];
    }
  }
  return name;
}

}  // namespace

int ReadHostText(std::string_view path, std::string *text) {
  const HostAnswer answer = TheWorld().host.Ask(HostOperation::kText, path);
  if (answer.status == 0) *text = answer.bytes;
  return answer.status;
}

int HostPathExists(std::string_view path) {
  return TheWorld().host.Ask(HostOperation::kExists, path).status;
}

int ListHostFolder(std::string_view path, std::vector<std::string> *names) {
  names->clear();
  const HostAnswer answer = TheWorld().host.Ask(HostOperation::kList, path);
  for (size_t at = 0, end = 0; (end = answer.bytes.find('\n', at)) != std::string::npos; at = end + 1) {
    names->push_back(DecodeComponent(std::string_view(answer.bytes).substr(at, end - at)));
  }
  std::ranges::sort(*names);
  return answer.status;
}

int WriteHostText(std::string_view path, std::string_view text) {
  return TheWorld().host.Do(HostOperation::kWrite, path, text);
}

int RecordAction(std::string_view operation, const std::vector<ActionField> & /*fields*/) {
  return TheWorld().host.Do(HostOperation::kAction, operation, "");
}

CpuCounts MachineCpuCounts() {
  const HostAnswer answer = TheWorld().host.Ask(HostOperation::kText, "machine/cpuCounts");
  std::array<int64_t, 2> counts = {1, 1};
  if (answer.status == 0) ParseIntegers(answer.bytes, 1, INT32_MAX, counts);
  return {counts[0], counts[1]};
}

std::string MachineCpuVendor() {
  return TheWorld().host.Ask(HostOperation::kText, "machine/cpuVendor").bytes;
}

std::string MachineUuid() {
  const HostAnswer answer = TheWorld().host.Ask(HostOperation::kText, "machine/uuid");
  return answer.status == 0 ? answer.bytes : "00000000-0000-0000-0000-000000000000";
}

}  // namespace hosted

namespace rynd {

using replay::HostOperation;
using replay::TheWorld;

base::UniqueFd OpenVolumesFolder() {
  if (TheWorld().host.Ask(HostOperation::kExists, "root/hyfs/volumes").status != 0) return {};
  return base::UniqueFd(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));  // only its being there counts
}

std::string ScratchTarget() {
  const replay::HostAnswer answer = TheWorld().host.Ask(HostOperation::kText, "root/scratch");
  return answer.status == 0 ? answer.bytes : "/scratch";
}

}  // namespace rynd
