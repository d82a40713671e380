# What `cmake --install` puts where: the libraries side by side, the headers that a host includes, the package
# files for find_package(kvNetworkReceiver) and for pkg-config. The tools install themselves, in host/.
include(CMakePackageConfigHelpers)

set(KV_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kvnetworkreceiver)
set(KV_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kvNetworkReceiver)

# A host links the platform and includes the contracts. The module it loads by class identifier.
set_target_properties(kv_platform PROPERTIES EXPORT_NAME platform)
set_target_properties(kv_contracts PROPERTIES EXPORT_NAME contracts)
install(TARGETS kv_platform kv_contracts EXPORT kvNetworkReceiverTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${KV_INSTALL_INCLUDEDIR})
install(TARGETS kv_module
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NOT WIN32)
  install(TARGETS kv_netsource kv_module_logger LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # The libraries find each other wherever they are put.
  set_target_properties(kv_module kv_netsource kv_module_logger PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(DIRECTORY include/ platform/ DESTINATION ${KV_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h"
  PATTERN "posix" EXCLUDE
  PATTERN "windows" EXCLUDE)

install(EXPORT kvNetworkReceiverTargets NAMESPACE kvNetworkReceiver:: DESTINATION ${KV_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/kvNetworkReceiverConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kvNetworkReceiverConfig.cmake
  INSTALL_DESTINATION ${KV_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvNetworkReceiverConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
configure_file(cmake/kvNetworkReceiver.pc.in ${PROJECT_BINARY_DIR}/kvNetworkReceiver.pc @ONLY)
install(FILES
  ${PROJECT_BINARY_DIR}/kvNetworkReceiverConfig.cmake
  ${PROJECT_BINARY_DIR}/kvNetworkReceiverConfigVersion.cmake
  DESTINATION ${KV_INSTALL_CMAKEDIR})
install(FILES ${PROJECT_BINARY_DIR}/kvNetworkReceiver.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
