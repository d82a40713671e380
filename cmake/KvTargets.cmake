# Helpers that every folder uses, so that a target is described in one line and built one way.

option(KV_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(KV_BUILD_TESTS "Build the tests" ON)
option(KV_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(KV_LIBFUZZER "Link the fuzz targets with libFuzzer (clang)" OFF)
set(KV_SANITIZE "" CACHE STRING "Sanitizers for every target, for example address,undefined")

add_library(kv_options INTERFACE)
target_compile_features(kv_options INTERFACE cxx_std_20)
if(MSVC)
  target_compile_options(kv_options INTERFACE /W4 /utf-8 /permissive- /EHsc /Zc:__cplusplus)
  if(KV_WARNINGS_AS_ERRORS)
    target_compile_options(kv_options INTERFACE /WX)
  endif()
else()
  target_compile_options(kv_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wold-style-cast -Woverloaded-virtual -Wnull-dereference -Wimplicit-fallthrough)
  # Interfaces handed across the component boundary end in Release, not in a virtual destructor.
  target_compile_options(kv_options INTERFACE -Wno-non-virtual-dtor)
  # g++ 12 sees overlapping copies in the concatenation of strings where there are none (GCC bug 105651).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(kv_options INTERFACE -Wno-restrict)
  endif()
  if(KV_WARNINGS_AS_ERRORS)
    target_compile_options(kv_options INTERFACE -Werror)
  endif()
endif()
if(KV_LIBFUZZER)
  target_compile_options(kv_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(KV_SANITIZE)
  target_compile_options(kv_options INTERFACE -fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(kv_options INTERFACE -fsanitize=${KV_SANITIZE})
  if(KV_SANITIZE MATCHES "undefined")
    # An aggregated object hands out its non-delegating part as an IUnknown of the same layout, which is how COM
    # defines it and what the vptr check cannot know.
    target_compile_options(kv_options INTERFACE -fno-sanitize-recover=all -fno-sanitize=vptr)
  endif()
endif()

# kv_name_sites(<target> <folder>): every source of the target raises and logs under the literal
# "<folder>/<file name without extension>".
function(kv_name_sites target folder)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(GET source STEM stem)
    set_source_files_properties(${source} PROPERTIES COMPILE_DEFINITIONS "KV_SOURCE_FILE=\"${folder}/${stem}\"")
  endforeach()
endfunction()

# g++ 12 warns of null pointers and sizes in the standard library and GoogleTest that only its optimiser believes in.
# The product's own sources are free of them; in test programs they are no errors when it optimises.
add_library(kv_test_options INTERFACE)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kv_test_options INTERFACE $<$<CONFIG:Release>:-Wno-error>)
  if(CMAKE_CROSSCOMPILING) # to be run once, so building fast is what counts
    target_compile_options(kv_test_options INTERFACE -O0)
  endif()
endif()

# kv_add_test(<name> [AT_ONCE] SOURCES ... LIBRARIES ...): a GoogleTest program whose cases are separate ctest tests; with
# AT_ONCE, for programs of many quick cases, it is one test, and so it is where the build cannot run it.
function(kv_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "AT_ONCE" "" "SOURCES;LIBRARIES;LABELS")
  if(WIN32)
    kv_fit_tests(arg_SOURCES)
    kv_fit_tests(arg_LIBRARIES)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE kv_options ${arg_LIBRARIES} GTest::gmock GTest::gtest_main
    kv_test_options)
  if(arg_AT_ONCE OR CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 900 LABELS "${arg_LABELS}")
  else()
    gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
      PROPERTIES TIMEOUT 120 LABELS "${arg_LABELS}")
  endif()
endfunction()
