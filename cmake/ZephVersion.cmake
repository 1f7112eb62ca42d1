# ZEPH_SOURCE_DATE: the day of the sources in UTC, YYYY-MM-DD, and ZEPH_SOURCE_EPOCH in seconds.
# From SOURCE_DATE_EPOCH in the environment; else of the last commit; else today. The version itself
# stands in the project command alone, the name of the shared libraries is its major number.
set(ZEPH_SOURCE_EPOCH "$ENV{SOURCE_DATE_EPOCH}")
if(ZEPH_SOURCE_EPOCH STREQUAL "")
  execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct -- .
                  OUTPUT_VARIABLE ZEPH_SOURCE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET
                  RESULT_VARIABLE failed)
  if(failed OR NOT ZEPH_SOURCE_EPOCH)
    string(TIMESTAMP ZEPH_SOURCE_EPOCH "%s" UTC)
  endif()
endif()
if(NOT ZEPH_SOURCE_EPOCH MATCHES "^[0-9]+$")
  message(FATAL_ERROR "SOURCE_DATE_EPOCH is \"${ZEPH_SOURCE_EPOCH}\"; it must be seconds since 1970")
endif()
set(environment "$ENV{SOURCE_DATE_EPOCH}")
set(ENV{SOURCE_DATE_EPOCH} ${ZEPH_SOURCE_EPOCH})  # what string(TIMESTAMP) writes out
string(TIMESTAMP ZEPH_SOURCE_DATE "%Y-%m-%d" UTC)
set(ENV{SOURCE_DATE_EPOCH} ${environment})
