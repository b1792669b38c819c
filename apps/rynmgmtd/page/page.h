// The web page, as the build embeds it: plain HTML, CSS and JavaScript. Constant: any thread.
#pragma once

#include <span>
#include <string_view>

namespace mgmtd {

struct PageFile {
  std::string_view path;  ///< "/" or "/page/app.js"
  std::string_view type;  ///< its Content-Type
  std::string_view text;
};

std::span<const PageFile> PageFiles();

}  // namespace mgmtd
