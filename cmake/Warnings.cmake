# The same warnings for every target and both compilers; all of them are errors.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wnon-virtual-dtor
                    -Wold-style-cast -Woverloaded-virtual -Wundef -Wcast-qual -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  add_compile_options(-Wthread-safety)
else()
  add_compile_options(-Wduplicated-cond -Wlogical-op)
endif()
