# The same warnings for every target and both compilers; errors in the presets, so that a new compiler's new warning
# stops no packager.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wnon-virtual-dtor
                    -Wold-style-cast -Woverloaded-virtual -Wundef -Wcast-qual)
if(RYND_WERROR)
  add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  add_compile_options(-Wthread-safety)
else()
  add_compile_options(-Wduplicated-cond -Wlogical-op)
endif()
