# cmake -DOUT=FILE -DFOLDER=FOLDER -P embed.cmake: write the page's files as C++.
set(types html "text/html; charset=utf-8" css "text/css; charset=utf-8" js "text/javascript; charset=utf-8")
file(GLOB files ${FOLDER}/*.html ${FOLDER}/*.css ${FOLDER}/*.js)
list(SORT files)
set(arrays "")
set(entries "")
set(count 0)
foreach(file ${files})
  cmake_path(GET file FILENAME name)
  cmake_path(GET file EXTENSION LAST_ONLY extension)
  string(SUBSTRING ${extension} 1 -1 extension)
  list(FIND types ${extension} at)
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  set(path "/page/${name}")
  if(name STREQUAL "index.html")
    set(path "/")
  endif()
  file(READ ${file} bytes HEX)
  string(LENGTH ${bytes} size)
  math(EXPR size "${size} / 2")
  string(REGEX REPLACE "(..)" "0x\\1," bytes ${bytes})
  string(REGEX REPLACE "(................................................................................)" "\\1\n" bytes
         ${bytes})
  string(APPEND arrays "constexpr unsigned char kFile${count}[] = {\n${bytes}};\n")
  string(APPEND entries "    {\"${path}\", \"${type}\", {reinterpret_cast<const char *>(kFile${count}), ${size}}},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE ${OUT} "// Made by embed.cmake of the page's files.
#include \"mgmtd/page/page.h\"

namespace mgmtd {
namespace {

${arrays}
const PageFile kFiles[] = {
${entries}};

}  // namespace

std::span<const PageFile> PageFiles() {
  return kFiles;
}

}  // namespace mgmtd
")
