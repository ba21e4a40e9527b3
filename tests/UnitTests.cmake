# What script/test builds: the units, and of them those that measure and those that take long.
add_custom_target(unit_programs)
add_custom_target(timed_programs)
add_custom_target(long_programs)

# unit_tests(TARGET [NAME name] [SHARES n] [TIMED filter] [LONG filter] [ENVIRONMENT variable...]): the cases of a gtest executable as
# the test NAME, or as n of them side by side where the cases wait for something. Not one by one: a process for each case takes
# longer to start than to run.
# Limits of time and memory hold only in NAME.timed, which has the machine to itself (support/Timing.h). Cases called Timed... run
# there alone, those of the filter there too. NAME.long is as NAME.timed, for those that take too long for every day.
function(unit_tests target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME;SHARES;TIMED;LONG" "ENVIRONMENT")
  if(NOT arg_NAME)
    set(arg_NAME ${target})
  endif()
  if(NOT arg_SHARES)
    set(arg_SHARES 1)
  endif()
  add_dependencies(unit_programs ${target})
  math(EXPR last "${arg_SHARES} - 1")
  foreach(share RANGE ${last})
    set(name ${arg_NAME})
    if(last)
      string(APPEND name .${share})
    endif()
    unit_test(${name} unit ${target} -*.Timed*)
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT GTEST_TOTAL_SHARDS=${arg_SHARES} GTEST_SHARD_INDEX=${share})
  endforeach()
  if(arg_TIMED)
    add_dependencies(timed_programs ${target})
    unit_test(${arg_NAME}.timed timed ${target} *.Timed*:${arg_TIMED})
  endif()
  if(arg_LONG)
    add_dependencies(long_programs ${target})
    unit_test(${arg_NAME}.long long ${target} ${arg_LONG})
  endif()
endfunction()

# For unit_tests: a selection of the target's cases as one test.
function(unit_test name label target filter)
  add_test(NAME ${name} COMMAND ${target} --gtest_filter=${filter})
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 1800 FAIL_REGULAR_EXPRESSION "Running 0 tests"
    ENVIRONMENT "${arg_ENVIRONMENT}")
  if(NOT label STREQUAL unit)
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT SKYLET_RUNS_ALONE=1)
    set_property(TEST ${name} PROPERTY RUN_SERIAL TRUE)
    set_property(TEST ${name} PROPERTY COST 400)
  endif()
endfunction()
