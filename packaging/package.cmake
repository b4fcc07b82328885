# The Debian packages, of the device (the daemon, the relay, parkctl, and the services around them) and of a site's hub.
# Build them with
#   cmake --build --preset release --target package
# or, for the board, with the preset arm.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME device)

# The packaged daemon is always a board's. In a build for the desk it is linked once more: it brings the board's
# paths itself, and the platform library's own are then left out.
if(NOT BOARD STREQUAL desk)
  install(TARGETS business_server DESTINATION bin)
else()
  add_executable(business_server_packaged ${packaged_board_dir}/board_paths.cpp)
  target_link_libraries(business_server_packaged PRIVATE business_server_main)
  set_target_properties(business_server_packaged PROPERTIES
    OUTPUT_NAME business_server_camera RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/package)
  install(PROGRAMS $<TARGET_FILE:business_server_packaged> DESTINATION bin RENAME business_server)
endif()
if(TARGET parkctl)
  install(TARGETS parkctl DESTINATION bin)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/parkctl.bash-completion
          DESTINATION share/bash-completion/completions RENAME parkctl)
endif()
install(TARGETS store_records DESTINATION lib/business-server)
# The relay to a site: not enabled until somebody puts the device into one.
if(TARGET park_relay)
  install(TARGETS park_relay DESTINATION bin)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/systemd/business-server-relay.service DESTINATION /lib/systemd/system)
endif()

# The desk's broker and store configurations with what the device has on top.
set(here ${CMAKE_CURRENT_LIST_DIR})
set(made ${CMAKE_BINARY_DIR}/package)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${here}/mosquitto.conf ${here}/redis.conf ${here}/device/mosquitto.conf ${here}/device/redis.conf)
file(READ ${here}/mosquitto.conf broker)
file(READ ${here}/device/mosquitto.conf accounts)
if(NOT broker MATCHES "allow_anonymous true\n")
  message(FATAL_ERROR "packaging/mosquitto.conf no longer says 'allow_anonymous true': the device's accounts have no place")
endif()
string(REPLACE "allow_anonymous true\n" "\n${accounts}" broker "${broker}")
file(WRITE ${made}/mosquitto.conf "${broker}")
file(READ ${here}/redis.conf store)
file(READ ${here}/device/redis.conf access)
file(WRITE ${made}/redis.conf "${store}${access}")

install(FILES ${made}/mosquitto.conf ${made}/redis.conf ${here}/device/bus.acl DESTINATION /etc/business-server)
install(DIRECTORY DESTINATION /etc/business-server/bus.d)
install(PROGRAMS ${here}/store-repair ${here}/make-accounts ${here}/remote-requests ${here}/console
                 ${here}/make-certificate ${here}/log-level
                 ${here}/store-export DESTINATION lib/business-server)
install(FILES ${here}/journal.conf DESTINATION lib/systemd/journald@business-server.conf.d RENAME bounds.conf)
install(FILES ${here}/device/bus-console.conf DESTINATION lib/business-server)
install(FILES ${here}/device/console.conf DESTINATION /etc/business-server/console)
install(FILES ${here}/systemd/business-server.service ${here}/systemd/business-server-bus.service
              ${here}/systemd/business-server-store.service ${here}/systemd/business-server-console.service
              ${here}/systemd/business-server-guard.service ${here}/systemd/business-server-export.service
              ${here}/systemd/business-server-export.timer
        DESTINATION /lib/systemd/system)
install(FILES ${packaged_board_dir}/unit.conf
        DESTINATION /lib/systemd/system/business-server.service.d RENAME board.conf)
install(FILES ${packaged_board_dir}/device.rules DESTINATION /lib/udev/rules.d RENAME 60-business-server.rules)
install(FILES ${here}/sysusers.conf DESTINATION lib/sysusers.d RENAME business-server.conf)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/CHANGELOG.md)
# CMake's own would write the time into it.
execute_process(COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${made}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${CMAKE_SOURCE_DIR}/docs/packaging.md ${CMAKE_SOURCE_DIR}/docs/security.md
              ${CMAKE_SOURCE_DIR}/docs/site.md ${CMAKE_SOURCE_DIR}/docs/hub.md ${CMAKE_SOURCE_DIR}/docs/commissioning.md ${CMAKE_SOURCE_DIR}/docs/time.md ${CMAKE_SOURCE_DIR}/docs/migrations.md ${here}/debian/copyright ${made}/changelog.gz DESTINATION share/doc/business-server)

# The hub. It runs on any machine, and has nothing that is compiled.
set(site ${here}/site)
install(FILES ${site}/mosquitto.conf ${site}/console.conf DESTINATION /etc/business-server-site COMPONENT site)
install(DIRECTORY DESTINATION /etc/business-server-site/hub.d COMPONENT site)
install(PROGRAMS ${site}/make-site-account DESTINATION sbin COMPONENT site)
install(PROGRAMS ${here}/make-certificate DESTINATION lib/business-server-site COMPONENT site)
install(FILES ${site}/business-server-hub.service ${site}/business-server-hub-console.service
        DESTINATION /lib/systemd/system COMPONENT site)
install(FILES ${site}/sysusers.conf DESTINATION lib/sysusers.d RENAME business-server-site.conf COMPONENT site)
install(DIRECTORY DESTINATION share/business-server-site/console COMPONENT site)
install(FILES ${CMAKE_SOURCE_DIR}/docs/hub.md ${CMAKE_SOURCE_DIR}/docs/site.md ${CMAKE_SOURCE_DIR}/docs/security.md
              ${here}/debian/copyright ${made}/changelog.gz
        DESTINATION share/doc/business-server-site COMPONENT site)

# Made with the package, in cpack.cmake.
install(FILES ${made}/business-server.spdx DESTINATION share/doc/business-server)
install(FILES ${made}/business-server-site.spdx DESTINATION share/doc/business-server-site COMPONENT site)

# The console, for the hub and, where its owner wants it, for the device.
set(console ${CMAKE_BINARY_DIR}/share/console/index.html)
install(FILES ${console} DESTINATION share/business-server-site/console COMPONENT site OPTIONAL)
install(FILES ${console} DESTINATION share/business-server/console OPTIONAL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL device site)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGE_CONTACT "The business server's maintainers <maintainers@localhost>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${here}/same_bytes.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${here}/same_bytes.cmake)

set(CPACK_DEBIAN_DEVICE_PACKAGE_NAME business-server)
set(CPACK_COMPONENT_DEVICE_DESCRIPTION "Business server of a parking-guidance camera")
set(CPACK_DEBIAN_DEVICE_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_DEVICE_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_DEVICE_PACKAGE_CONTROL_EXTRA
  ${here}/debian/postinst ${here}/debian/prerm ${here}/debian/postrm ${here}/debian/conffiles)
# killall is psmisc's: the daemon restarts the recognition programs with it. The device rules are udev's. A certificate
# for the console, where it is wanted, is openssl's.
set(CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS
  "mosquitto (>= 2.0), redis-server (>= 5:7.0), redis-tools (>= 5:7.0), systemd, udev, psmisc, openssl")

set(CPACK_DEBIAN_DEVICE_PACKAGE_SUGGESTS stunnel4)

set(CPACK_DEBIAN_SITE_PACKAGE_NAME business-server-site)
set(CPACK_COMPONENT_SITE_DESCRIPTION "Hub of a site of parking-guidance cameras")
set(CPACK_DEBIAN_SITE_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_SITE_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_SITE_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_SITE_PACKAGE_DEPENDS "mosquitto (>= 2.0), openssl, stunnel4, systemd")
set(CPACK_DEBIAN_SITE_PACKAGE_CONTROL_EXTRA
  ${site}/debian/postinst ${site}/debian/prerm ${site}/debian/postrm ${site}/debian/conffiles)

set(programs ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/business_server ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/park_relay)
if(TARGET parkctl)
  list(APPEND programs ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/parkctl)
endif()
list(JOIN programs "\" \"" programs)
# Asked when the package is made: the version is that of the build (build_identity/), and packages of earlier builds do
# not stay beside it.
set(CPACK_PROJECT_CONFIG_FILE ${made}/cpack.cmake)
file(WRITE ${made}/cpack.cmake "
  include(\"${CMAKE_BINARY_DIR}/build_identity/build_version.cmake\")
  set(CPACK_PACKAGE_VERSION \${BUILD_VERSION})
  set(CPACK_DEBIAN_PACKAGE_VERSION \${BUILD_VERSION})
  if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ENV{SOURCE_DATE_EPOCH} \${BUILD_TIME})
  endif()
  file(GLOB earlier \${CPACK_PACKAGE_DIRECTORY}/business-server*.deb)
  if(earlier)
    file(REMOVE \${earlier})
  endif()
  # What is in the packages, and what they depend on.
  function(list_components package depends)
    execute_process(
      COMMAND ${here}/list-components \${package} \${BUILD_VERSION} \${depends} ${made}/page-packages \${ARGN}
      OUTPUT_FILE ${made}/\${package}.spdx COMMAND_ERROR_IS_FATAL ANY)
  endfunction()
  list_components(business-server \"${CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS}\" \"${programs}\")
  list_components(business-server-site \"${CPACK_DEBIAN_SITE_PACKAGE_DEPENDS}\")\n")
if(CMAKE_CROSSCOMPILING)
  # This machine's package database does not know the board's libraries.
  set(CPACK_DEBIAN_DEVICE_PACKAGE_ARCHITECTURE armhf)
  file(APPEND ${made}/cpack.cmake "
    execute_process(COMMAND ${here}/library-packages ${CMAKE_SYSROOT}/.shlibs \"${programs}\"
      OUTPUT_VARIABLE libraries OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS \", \${libraries}\")\n")
else()
  set(CPACK_DEBIAN_DEVICE_PACKAGE_SHLIBDEPS ON)
  # Without this tool the package would be made all the same, and depend on no library.
  file(APPEND ${made}/cpack.cmake "
    find_program(shlibdeps dpkg-shlibdeps)
    if(NOT shlibdeps)
      message(FATAL_ERROR \"dpkg-shlibdeps (package dpkg-dev) is missing: the package would not name its libraries\")
    endif()\n")
endif()
include(CPack)
