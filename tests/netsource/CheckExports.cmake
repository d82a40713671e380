# The library exports the SDK's entry points and the counters query, nothing else.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" names "${listing}")
string(REPLACE "\n" "" names "${names}")
list(SORT names)
set(expected AttachBuffer CreateBufferAllocator CreateNetworkClient GetNetworkClientCounters StartSocketService
  StopSocketService)
if(NOT names STREQUAL expected)
  message(FATAL_ERROR "exported: ${names}\nexpected: ${expected}")
endif()
