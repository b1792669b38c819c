// The root folder that stands in front of every absolute path. Any thread.
#include <cstdlib>
#include <string>

#include "platform/system.h"

const char *Hyk_Root() {
  // Never destroyed: threads may still ask while the process exits. A set-user-id process ignores the environment.
  static const std::string &root = *new std::string([] {
    const char *text = secure_getenv("CORVANE_ROOT");
    std::string folder = text == nullptr ? "" : text;
    while (folder.ends_with('/')) folder.pop_back();
    return folder;
  }());
  return root.c_str();
}
