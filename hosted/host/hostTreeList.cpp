// Lists the folders of the host tree. Stateless: any thread.
#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "hosted/flight/recorder.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"

namespace hosted {
namespace {

struct CloseFolder {
  void operator()(DIR *folder) const { closedir(folder); }
};

/// What a path component stands for. False when it is not what HostComponent makes of any text.
bool DecodeComponent(const std::string &component, std::string *name) {
  name->clear();
  for (size_t i = 0; component != "%" && i < component.size(); ++i) {
    if (component[i] != '%') {
      *name += component[i];
      continue;
    }
    const std::string digits = component.substr(i + 1, 2);
    if (digits.size() != 2 || digits.find_first_not_of("0123456789ABCDEF") != std::string::npos) return false;
    *name += static_cast<char>(std::stoi(digits, nullptr, 16));
    i += 2;
  }
  return HostComponent(name->c_str()) == component;
}

/// ListHostFolder.
int List(std::string_view path, std::vector<std::string> *names) {
  names->clear();
  const std::string whole = HostTreePath(path);
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(whole.c_str()));
  int error = folder == nullptr ? errno : 0;
  while (folder != nullptr) {
    errno = 0;
    const dirent *entry = readdir(folder.get());
    if (entry == nullptr) {
      error = errno;
      break;
    }
    std::string name;
    if (DecodeComponent(entry->d_name, &name)) {
      names->push_back(name);
    } else if (entry->d_name[0] != '.') {  // hidden files are nobody's names
      Log("Left out %s/%s: it is no name of the tree", whole.c_str(), entry->d_name);
    }
  }
  std::ranges::sort(*names);
  if (error == ENOENT) return 0;
  if (error != 0) Log("Cannot list %s: %s", whole.c_str(), std::strerror(error));
  return error;
}

/// Names as they stand in paths, each with a line end.
std::string Lines(const std::vector<std::string> &names) {
  std::string lines;
  for (const std::string &name : names) lines += HostComponent(name.c_str()) + '\n';
  return lines;
}

}  // namespace

int ListHostFolder(std::string_view path, std::vector<std::string> *names) {
  const int status = List(path, names);
  if (recorder::IsOn()) RecordHost(flight::HostKind::kList, path, status, Lines(*names));
  return status;
}

}  // namespace hosted
