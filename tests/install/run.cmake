# Installs the build in KV_BUILD into a new folder, builds the host in KV_CONSUMER against it alone, registers
# the module with the installed tool, and lets the host create and drive receivers.
set(folder ${KV_WORK})
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
set(prefix ${folder}/prefix)
set(ENV{XDG_DATA_HOME} ${folder}/data)
set(ENV{LD_LIBRARY_PATH} "") # what is installed must find itself

function(run expected)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0 OR NOT output MATCHES "${expected}")
    message(FATAL_ERROR "${ARGN}\nended with ${status}, expected \"${expected}\":\n${output}")
  endif()
endfunction()

run("" ${CMAKE_COMMAND} --install ${KV_BUILD} --prefix ${prefix})
# Moved, so that nothing can depend on where it was installed.
file(RENAME ${prefix} ${folder}/moved)
set(prefix ${folder}/moved)

run("" ${CMAKE_COMMAND} -S ${KV_CONSUMER} -B ${folder}/build -G ${KV_GENERATOR}
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${KV_COMPILER} -DCMAKE_CXX_FLAGS=${KV_FLAGS})
run("" ${CMAKE_COMMAND} --build ${folder}/build)

execute_process(COMMAND ${folder}/build/consumer RESULT_VARIABLE status OUTPUT_VARIABLE output)
if(NOT output MATCHES "factory 0x80040154" OR status EQUAL 0)
  message(FATAL_ERROR "an unregistered class was created: ${output}")
endif()
run("registered ${prefix}/${KV_LIBDIR}/libkvNetworkReceiver.so" ${prefix}/bin/kvregister
  ${prefix}/${KV_LIBDIR}/libkvNetworkReceiver.so)
# A URL without a protocol is the first clear failure; on the loopback address an open port is a stream.
run("factory 0x00000000\nnothing created 0x89998044\nudp://127.0.0.1:0 created" ${folder}/build/consumer nothing
  udp://127.0.0.1:0)
run("unregistered" ${prefix}/bin/kvregister --unregister ${prefix}/${KV_LIBDIR}/libkvNetworkReceiver.so)

find_program(pkg_config pkg-config)
if(pkg_config)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${KV_LIBDIR}/pkgconfig)
  run("-I.*include/kvnetworkreceiver.*-lkvplatform" ${pkg_config} --cflags --libs kvNetworkReceiver)
  run("libkvNetworkReceiver.so" ${pkg_config} --variable=module kvNetworkReceiver)
endif()
file(REMOVE_RECURSE ${folder})
