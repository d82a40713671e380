# Run by ctest: cmake -D SOURCE_DIR=<top> -P CheckIncludes.cmake
# Fails unless every folder includes by bare name and only from the folders below it, and the module itself needs the
# standard library alone. The build enforces the same for what is linked; this also sees what happens to be found.

cmake_minimum_required(VERSION 3.25)

# What each folder may include from, besides itself. tests/, bench/ and fuzz/ may include everything.
set(below_platform "")
set(below_include platform)
set(below_foundation include platform)
set(below_logger include platform)
set(below_netsource include platform)
set(below_src foundation include platform)
set(below_host logger include platform)
# A host may read the network client's counters, found by name at run time.
set(also_for_host NetworkClientCounters.h)
set(folders platform include foundation logger netsource src host)

set(errors "")
foreach(folder IN LISTS folders)
  file(GLOB_RECURSE headers RELATIVE "${SOURCE_DIR}/${folder}" "${SOURCE_DIR}/${folder}/*.h")
  foreach(header IN LISTS headers)
    cmake_path(GET header FILENAME name)
    list(APPEND "folders_of_${name}" ${folder})
  endforeach()
endforeach()

foreach(folder IN LISTS folders ITEMS tests bench fuzz)
  file(GLOB_RECURSE sources RELATIVE "${SOURCE_DIR}" "${SOURCE_DIR}/${folder}/*.h" "${SOURCE_DIR}/${folder}/*.cpp")
  foreach(source IN LISTS sources)
    file(STRINGS "${SOURCE_DIR}/${source}" lines REGEX "^[ \t]*#[ \t]*include")
    foreach(line IN LISTS lines)
      if(line MATCHES "\"([^\"]*)\"")
        set(name "${CMAKE_MATCH_1}")
        # Where the name leads: two folders that do not see each other may use one name, two that do may not.
        set(from "")
        foreach(candidate IN LISTS "folders_of_${name}")
          if(candidate STREQUAL folder OR candidate IN_LIST below_${folder})
            list(APPEND from ${candidate})
          endif()
        endforeach()
        list(REMOVE_DUPLICATES from) # a header for each system
        list(LENGTH from count)
        if(name MATCHES "/")
          list(APPEND errors "${source} includes \"${name}\", not a bare name")
        elseif(NOT folder IN_LIST folders OR name IN_LIST also_for_${folder} OR count EQUAL 1)
          # everything is open to tests
        elseif(count EQUAL 0)
          list(APPEND errors "${source} includes \"${name}\" of \"${folders_of_${name}}\", not below ${folder}/")
        else()
          list(APPEND errors "${source} includes \"${name}\", which is in each of ${from}")
        endif()
      elseif(folder MATCHES "^(include|foundation|src)$" AND line MATCHES "<[^>]*[./][^>]*>")
        list(APPEND errors "${source}: ${line} is not of the C++ standard library")
      endif()
    endforeach()
  endforeach()
endforeach()

if(errors)
  list(JOIN errors "\n  " text)
  message(FATAL_ERROR "${text}")
endif()
