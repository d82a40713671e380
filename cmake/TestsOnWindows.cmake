# What the test programs of the other folders are made of on Windows.

# The module's sources once more: calls of the system go to what a test can make fail, see RenamedCalls.h.
add_library(kv_renamed_calls INTERFACE)
target_compile_options(kv_renamed_calls INTERFACE -include ${PROJECT_SOURCE_DIR}/tests/windows/RenamedCalls.h)
target_include_directories(kv_renamed_calls INTERFACE ${PROJECT_SOURCE_DIR}/tests/windows)
function(kv_rename_calls name folder)
  get_target_property(sources kv_${name} SOURCES)
  list(TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/${folder}/)
  add_library(kv_renamed_${name} STATIC EXCLUDE_FROM_ALL ${sources})
  kv_name_sites(kv_renamed_${name} ${folder})
  target_include_directories(kv_renamed_${name} PUBLIC ${PROJECT_SOURCE_DIR}/${folder})
  target_link_libraries(kv_renamed_${name} PUBLIC ${ARGN} kv_renamed_calls PRIVATE kv_options)
endfunction()
kv_rename_calls(foundation foundation kv::contracts)
kv_rename_calls(reception src kv_renamed_foundation kv::bitstream)
kv_rename_calls(receivers src kv_renamed_reception)

set(KV_NOT_ON_WINDOWS
  # What allocates is the same on every system.
  DeliveryCostTest.cpp
  # They begin with POSIX files.
  SessionDescriptionTest.cpp)

# kv_fit_tests(<list>): leaves in a list of sources or libraries what serves there.
function(kv_fit_tests list)
  list(REMOVE_ITEM ${list} ${KV_NOT_ON_WINDOWS})
  list(TRANSFORM ${list} REPLACE "^kv::(foundation|reception|receivers)$" "kv_renamed_\\1")
  set(${list} ${${list}} PARENT_SCOPE)
endfunction()
