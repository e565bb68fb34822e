# bridge_discover_suites(target PREFIX prefix TIMEOUT seconds LABEL label): after each link, one ctest test for each of
# the program's suites. The program gives every test of a suite a process of its own (see tests/support/main.cpp), which
# a fork makes in a fraction of the time that ctest and an emulator need to start one.
function(bridge_discover_suites target)
  cmake_parse_arguments(arg "" "PREFIX;TIMEOUT;LABEL" "" ${ARGN})
  set(list "${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake")
  add_custom_command(
    TARGET ${target} POST_BUILD BYPRODUCTS "${list}" VERBATIM
    COMMAND
      "${CMAKE_COMMAND}" -D "PROGRAM=$<TARGET_FILE:${target}>" -D "EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}" -D
      "PREFIX=${arg_PREFIX}" -D "TIMEOUT=${arg_TIMEOUT}" -D "LABEL=${arg_LABEL}" -D "LIST=${list}" -P
      "${PROJECT_SOURCE_DIR}/cmake/list_suites.cmake")
  # In a tree where not everything was built, the others' tests run and this program's cannot.
  set(include "${CMAKE_CURRENT_BINARY_DIR}/${target}_include.cmake")
  file(WRITE "${include}" "if(EXISTS \"${list}\")\n  include(\"${list}\")\nelse()\n"
                          "  add_test(\"${arg_PREFIX}not_built\" ${target}_not_built)\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${include}")
endfunction()
