# One bounded run of a fuzz target for ctest:
#   cmake -DFUZZER=<program> -DCORPUS=<checked-in corpus> -DWORK=<scratch folder>
#         [-DDICTIONARY=<file>] -DSECONDS=<n> -P smoke.cmake
# The checked-in corpus is only read: libFuzzer writes what it finds into the
# first folder it is given, here a fresh one in the build tree, and a crashing
# input into WORK/artifacts, which the next run clears.
foreach(name FUZZER CORPUS WORK SECONDS)
  if(NOT DEFINED ${name} OR "${${name}}" STREQUAL "")
    message(FATAL_ERROR "smoke.cmake: ${name} is not set")
  endif()
endforeach()
if(NOT IS_DIRECTORY "${CORPUS}")
  message(FATAL_ERROR "no corpus folder ${CORPUS}")
endif()
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}/found" "${WORK}/artifacts")
set(options -max_total_time=${SECONDS} -timeout=10 -rss_limit_mb=1024 -print_final_stats=1
  -artifact_prefix=${WORK}/artifacts/)
if(DICTIONARY)
  list(APPEND options -dict=${DICTIONARY})
endif()
execute_process(COMMAND "${FUZZER}" ${options} "${WORK}/found" "${CORPUS}" RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  file(GLOB artifacts "${WORK}/artifacts/*")
  message(FATAL_ERROR "${FUZZER} failed (${status}); the input that failed: ${artifacts}")
endif()
