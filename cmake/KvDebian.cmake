# The Debian packages, made by CPack: libkvsmtpdriver (the plug-in), kvhost (the host as a service), libkvsmtp-dev
# (the SDK) and kvsmtp-tools (the mail server for trials). Used by the preset "package", whose prefix is /usr.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "Debian packages are installed below /usr: use the preset \"package\"")
endif()

set(KV_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
file(STRINGS ${KV_PACKAGING}/debian/changelog KV_FIRST_LINE LIMIT_COUNT 1)
if(NOT KV_FIRST_LINE MATCHES "^kvsmtp \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()

# A file, compressed without its name and time in it, so that every build makes the same one.
function(kv_install_compressed file folder component)
  get_filename_component(name ${file} NAME)
  set(compressed ${PROJECT_BINARY_DIR}/packaging/${component}/${name}.gz)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging/${component})
  execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${compressed} COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${compressed} DESTINATION ${folder} COMPONENT ${component})
endfunction()

# kv_debian_package(<component> <name> <section> <description>)
macro(kv_debian_package component name section description)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
  install(FILES ${KV_PACKAGING}/debian/copyright DESTINATION share/doc/${name} COMPONENT ${component})
  kv_install_compressed(${KV_PACKAGING}/debian/changelog share/doc/${name} ${component})
  if(EXISTS ${KV_PACKAGING}/debian/${name}.lintian)
    install(FILES ${KV_PACKAGING}/debian/${name}.lintian DESTINATION share/lintian/overrides RENAME ${name}
      COMPONENT ${component})
  endif()
endmacro()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT "kvsmtp developers <kvsmtp@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

kv_debian_package(driver libkvsmtpdriver libs
"e-mail delivery driver for messaging hosts
A shared library that a messaging (paging, alarm) host loads at run time to
deliver message jobs through SMTP: with STARTTLS and AUTH, on worker threads
over a bounded cache of connections.")
set(CPACK_DEBIAN_DRIVER_PACKAGE_CONTROL_EXTRA ${KV_PACKAGING}/debian/triggers)

kv_debian_package(host kvhost mail
"durable host for message delivery drivers
Takes message jobs from the command line and over HTTP, keeps them on disk,
hands them to a delivery driver, tries again what fails for the moment, and
accounts for every job: delivered, failed, or in doubt after a crash.
.
The package brings a service, which is started once it is configured.")
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "libkvsmtpdriver (>= ${PROJECT_VERSION}), adduser")
set(CPACK_DEBIAN_HOST_PACKAGE_RECOMMENDS "ca-certificates, sqlite3")
set(CPACK_DEBIAN_HOST_PACKAGE_SUGGESTS "kvsmtp-tools")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
  ${KV_PACKAGING}/debian/conffiles ${KV_PACKAGING}/debian/postinst ${KV_PACKAGING}/debian/prerm
  ${KV_PACKAGING}/debian/postrm)
install(FILES ${KV_PACKAGING}/kvhost.toml DESTINATION /etc/kvhost COMPONENT host)
install(FILES ${KV_PACKAGING}/kvhost.service DESTINATION /lib/systemd/system COMPONENT host)
install(FILES ${KV_PACKAGING}/kvhost.toml ${PROJECT_SOURCE_DIR}/examples/jobs.jsonl
  DESTINATION share/doc/kvhost/examples COMPONENT host)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION share/doc/kvhost COMPONENT host
  FILES_MATCHING PATTERN kvhost.md PATTERN operations.md PATTERN commands.md PATTERN daemon.md PATTERN driver.md
  PATTERN carrier-test.md PATTERN monitoring.md PATTERN status-page.png PATTERN store.md PATTERN retries.md
  PATTERN submitting.md PATTERN openapi.yaml)
file(GLOB manuals CONFIGURE_DEPENDS ${KV_PACKAGING}/man/kvhost*.[1-8])
foreach(manual ${manuals})
  string(REGEX MATCH "[1-8]$" part ${manual})
  kv_install_compressed(${manual} share/man/man${part} host)
endforeach()
if(EXISTS ${KV_PACKAGING}/completion/kvhost)
  install(FILES ${KV_PACKAGING}/completion/kvhost DESTINATION share/bash-completion/completions COMPONENT host)
endif()
# Libraries that are compiled in want their notices to travel with the program.
foreach(library libcli11-dev nlohmann-json3-dev libcpp-httplib-dev libtomlplusplus-dev libspdlog-dev)
  if(EXISTS /usr/share/doc/${library}/copyright)
    install(FILES /usr/share/doc/${library}/copyright DESTINATION share/doc/kvhost/compiled-in RENAME ${library}
      COMPONENT host)
  endif()
endforeach()

kv_debian_package(sdk libkvsmtp-dev libdevel
"headers and library for hosts of message delivery drivers
What a host of its own is built with: the contract between host and driver,
the system library, and the package file for CMake's find_package(kvsmtp).")
set(CPACK_DEBIAN_SDK_PACKAGE_DEPENDS "libssl-dev")
set(CPACK_DEBIAN_SDK_PACKAGE_SUGGESTS "libkvsmtpdriver")

kv_debian_package(tools kvsmtp-tools mail
"mail server for trials of message delivery
kvsink takes mail over SMTP on the loopback interface and stores or counts it:
the other side of a delivery driver in demonstrations, tests and benchmarks.
It delivers nowhere and is no mail server for production.")
kv_install_compressed(${KV_PACKAGING}/man/kvsink.1 share/man/man1 tools)
install(FILES ${PROJECT_SOURCE_DIR}/docs/kvsink.md DESTINATION share/doc/kvsmtp-tools COMPONENT tools)

include(CPack)
