# What most sources include, parsed once for all of them instead of once each: most of what a small source takes to
# compile. Not in the debug preset, whose build and lint show an include that is missing.
set(rynd_std_headers <algorithm> <array> <atomic> <cerrno> <chrono> <cstddef> <cstdint> <cstdio> <cstdlib> <cstring>
    <deque> <filesystem> <fstream> <functional> <iterator> <limits> <map> <memory> <mutex> <new> <optional> <set> <span>
    <sstream> <string> <string_view> <thread> <utility> <vector>)

# rynd_use_precompiled(TARGET NAME): let all sources of TARGET start from what the target NAME precompiles.
function(rynd_use_precompiled target name)
  if(RYND_PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM ${name})
  endif()
endfunction()

if(RYND_PRECOMPILE)
  # g++ forgets which of these are system headers, and warns in what it inlines of them; a package's build keeps that
  # watch.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-array-bounds -Wno-stringop-overread -Wno-stringop-overflow -Wno-restrict)
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled/main.cpp "int main() {}\n")
  add_library(precompiled_std OBJECT EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/precompiled/main.cpp)
  target_precompile_headers(precompiled_std PRIVATE ${rynd_std_headers})
endif()
