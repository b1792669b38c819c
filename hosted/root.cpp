// The root folder that stands in front of every absolute path. Any thread.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/system.h"

const char *Hyk_Root() {
  // Without memory of the heap: the log needs it when there is none. What is cut is too long for any path all the same.
  static char root[PATH_MAX] = "";
  [[maybe_unused]] static const bool isRead = [] {
    const char *text = secure_getenv("CORVANE_ROOT");  // a set-user-id process ignores the environment
    if (text == nullptr) return false;
    size_t length = strnlen(text, sizeof root - 1);
    while (length > 0 && text[length - 1] == '/') --length;
    std::memcpy(root, text, length);
    return true;
  }();
  return root;
}
