# How everything here is compiled. `bridge_flags` is for every target, `bridge_library_flags` for the library itself,
# which runs inside other people's processes and carries no C++ runtime.
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

option(BRIDGE_WERROR "A compiler's warning is an error" ON)
add_library(bridge_flags INTERFACE)
target_compile_definitions(bridge_flags INTERFACE _GNU_SOURCE)
set(format_signedness $<$<COMPILE_LANG_AND_ID:C,GNU>:-Wformat-signedness> # clang 14 does not know it
                      $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wformat-signedness>)
target_compile_options(bridge_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wformat=2
                                              ${format_signedness} -Wundef
                                              $<$<BOOL:${BRIDGE_WERROR}>:-Werror>)
# Files that are compiled together may use each other's names.
target_compile_options(bridge_flags INTERFACE $<$<NOT:$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wshadow>)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Optimised, this compiler warns about overlapping copies inside its own std::string; there are none.
  target_compile_options(bridge_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(BRIDGE_SANITIZE)
  target_compile_options(bridge_flags INTERFACE -fsanitize=${BRIDGE_SANITIZE} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
  target_link_options(bridge_flags INTERFACE -fsanitize=${BRIDGE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    # These two need the C++ runtime, which programs in C do not have.
    target_compile_options(bridge_flags INTERFACE -fno-sanitize=function,vptr)
  endif()
endif()

add_library(bridge_library_flags INTERFACE)
target_link_libraries(bridge_library_flags INTERFACE bridge_flags)
target_compile_options(
  bridge_library_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
                                 -fvisibility=hidden -fno-common)
# Tests compile without optimisation to save time; the library is never tested that way, except under a sanitizer.
if(NOT BRIDGE_SANITIZE)
  target_compile_options(bridge_library_flags INTERFACE $<$<CONFIG:Debug>:-O1>)
endif()

# Sources of the named rooms, newly added files included.
function(bridge_room_sources out)
  set(all)
  foreach(room IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${room}/*.cpp")
    list(APPEND all ${found})
  endforeach()
  set(${out} ${all} PARENT_SCOPE)
endfunction()

# bridge_unity(target...): with BRIDGE_UNITY all their files are compiled at once, which pays where everything is built
# anyway, as for a run of all tests: what a compiler spends goes into templates that each file would make anew. The names
# in the anonymous namespaces of a target must differ for it.
option(BRIDGE_UNITY "Compile all files of a test program, a workstation's library or program at once" OFF)
function(bridge_unity)
  if(BRIDGE_UNITY)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
endfunction()

# bridge_precompile_headers(target header...): for targets of bridge_unity whose files are compiled one by one. Optimised,
# g++ 12 warns about overflows inside its own std::string when it reads nlohmann/json.hpp from a precompiled header;
# there are none.
function(bridge_precompile_headers target)
  if(NOT BRIDGE_UNITY AND CMAKE_BUILD_TYPE STREQUAL Debug)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
