# Rooms: the folders of the tree as targets that see no more than they link. A room's headers are included by their
# folder ("core/log.h"), and reach a compiler only through the links that its target makes for them below the build
# folder, so that an include of a room that is not linked does not build.
set_property(GLOBAL PROPERTY RYND_ROOMS "")

# rynd_expose(TARGET KIND PREFIX FOLDER): let who links TARGET include FOLDER's headers as "PREFIX/...".
function(rynd_expose target kind prefix folder)
  file(GLOB headers CONFIGURE_DEPENDS ${folder}/*.h)
  set(shown ${PROJECT_BINARY_DIR}/rooms/${target})
  file(REMOVE_RECURSE ${shown})
  file(MAKE_DIRECTORY ${shown}/${prefix})
  foreach(header ${headers})
    cmake_path(GET header FILENAME name)
    file(CREATE_LINK ${header} ${shown}/${prefix}/${name} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${kind} ${shown})
endfunction()

# rynd_room(TARGET PREFIX FOLDER [TOGETHER] [LINKS rooms...] [WITHOUT files...]): the sources of FOLDER, its tests left
# out. TOGETHER: where RYND_TOGETHER is on, some are compiled at a time, since the headers of others' libraries that they
# include take longer than they do.
function(rynd_room target prefix folder)
  cmake_parse_arguments(arg "TOGETHER" "" "LINKS;WITHOUT" ${ARGN})
  cmake_path(ABSOLUTE_PATH folder NORMALIZE)
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  foreach(file ${arg_WITHOUT})
    list(REMOVE_ITEM sources ${folder}/${file})
  endforeach()
  if(sources)
    set(kind PUBLIC)
    add_library(${target} OBJECT ${sources})
    set_property(GLOBAL APPEND PROPERTY RYND_ROOMS ${target})
    rynd_use_precompiled(${target} precompiled_std)
    if(arg_TOGETHER AND RYND_TOGETHER)
      set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
    endif()
  else()
    set(kind INTERFACE)
    add_library(${target} INTERFACE)
  endif()
  rynd_expose(${target} ${kind} ${prefix} ${folder})
  target_link_libraries(${target} ${kind} ${arg_LINKS})
endfunction()

# rynd_archive(NAME rooms...): a static library of rooms. The linker takes their objects one by one, so that a test may
# bring its own in the place of one.
function(rynd_archive name)
  list(TRANSFORM ARGN REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(${name} STATIC ${objects})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  # What the rooms show, and what they link, but not their objects a second time.
  foreach(room ${ARGN})
    target_include_directories(${name} PUBLIC $<TARGET_PROPERTY:${room},INTERFACE_INCLUDE_DIRECTORIES>)
  endforeach()
endfunction()
