# Run by bridge_discover_suites after each link: writes LIST, one add_test for each suite of PROGRAM. The comment above
# each carries the number of its tests, for the summary.
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" --gtest_list_tests OUTPUT_VARIABLE listing RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} does not list its tests: ${result}")
endif()

set(text "")
macro(write_suite)
  if(suite)
    set(label ${LABEL})
    # What takes long begins first, so that no long suite is left over at the end; `ctest -LE slow` leaves out the
    # suites named ...Slow, whose tests take seconds.
    set(cost ${count})
    if(suite MATCHES "Slow$")
      set(label slow)
      set(cost 1000)
    endif()
    string(APPEND text "# ${PREFIX}${suite} ${count}\n"
                       "add_test(\"${PREFIX}${suite}\" ${EMULATOR} \"${PROGRAM}\" \"--gtest_filter=${suite}.*\" --gtest_brief=1)\n"
                       "set_tests_properties(\"${PREFIX}${suite}\" PROPERTIES TIMEOUT ${TIMEOUT} LABELS ${label}"
                       " COST ${cost} SKIP_RETURN_CODE 77)\n")
  endif()
endmacro()

string(REPLACE "\n" ";" lines "${listing}")
set(suite "")
foreach(line IN LISTS lines)
  if(line MATCHES "^  ")
    math(EXPR count "${count} + 1")
  elseif(line MATCHES "^([A-Za-z0-9_/]+)\\.")
    set(next ${CMAKE_MATCH_1})
    write_suite()
    set(suite ${next})
    set(count 0)
  endif()
endforeach()
write_suite()
file(WRITE "${LIST}" "${text}")
