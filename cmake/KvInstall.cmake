# What `cmake --install` puts where. Four components: "driver", the plug-in; "host", the reference host; "tools", the
# embedded mail server; "sdk", what a host is built with: the contract headers, kvsystem, and the package file for
# find_package(kvsmtp).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS kvsmtpdriver LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT driver)

# kvhost looks for the plug-in by its bare name: the run path leads the loader there under any prefix.
file(RELATIVE_PATH KV_LIBRARIES_FROM_PROGRAMS ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(kvhost PROPERTIES INSTALL_RPATH "$ORIGIN/${KV_LIBRARIES_FROM_PROGRAMS}")
install(TARGETS kvhost RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT host)
install(TARGETS kvsink RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

set(KV_SDK_HEADERS
  driver/KvDriverEntryPoints.h
  driver/KvMessageFile.h
  driver/KvMessageFileQueue.h
  driver/KvMessengerInstConfBasic.h
  driver/KvMessengerReportsMngrInterface.h
  driver/KvProtocolDriverInterface.h
  src/KvException.h
  src/KvLogInterface.h
  src/KvconCriticalSection.h
  src/KvconException.h
  src/KvconLock.h
  src/Kvobject.h)
list(TRANSFORM KV_SDK_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/)
set(KV_SDK_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/kvsmtp)
set(KV_SDK_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kvsmtp)

install(FILES ${KV_SDK_HEADERS} DESTINATION ${KV_SDK_INCLUDE_DIR} COMPONENT sdk)
install(TARGETS kvsystem EXPORT kvsmtpTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk
  INCLUDES DESTINATION ${KV_SDK_INCLUDE_DIR})
install(EXPORT kvsmtpTargets NAMESPACE kvsmtp:: DESTINATION ${KV_SDK_PACKAGE_DIR} COMPONENT sdk)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kvsmtpConfig.cmake.in
  ${PROJECT_BINARY_DIR}/kvsmtpConfig.cmake INSTALL_DESTINATION ${KV_SDK_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvsmtpConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kvsmtpConfig.cmake ${PROJECT_BINARY_DIR}/kvsmtpConfigVersion.cmake
  DESTINATION ${KV_SDK_PACKAGE_DIR} COMPONENT sdk)
