# Every library that the build finds on the machine, in one place: add it here and its package to dependencies.sh.
find_package(PkgConfig REQUIRED)

# Each becomes the target PkgConfig::NAME.
function(find_modules)
  foreach(name IN LISTS ARGN)
    pkg_check_modules(${name} REQUIRED IMPORTED_TARGET GLOBAL ${name})
  endforeach()
endfunction()

# What the daemon itself is written with.
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
find_package(Boost REQUIRED)

if(PLATFORM_DIR STREQUAL "${CMAKE_SOURCE_DIR}/platform/linux")
  find_modules(libmosquitto openssl hiredis libevent_core spdlog libsodium)
  find_package(Threads REQUIRED)
elseif(WITH_TOOLS OR WITH_BENCHMARKS OR WITH_FUZZERS)
  find_modules(libmosquitto hiredis libsodium)
endif()
if(WITH_TOOLS OR WITH_FUZZERS)
  find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)  # headers only: for a sysroot too
  add_library(CLI11 INTERFACE IMPORTED)
  target_include_directories(CLI11 SYSTEM INTERFACE ${CLI11_INCLUDE_DIR})
  find_path(VALIJSON_INCLUDE_DIR valijson/validator.hpp REQUIRED)
  add_library(valijson INTERFACE IMPORTED)
  target_include_directories(valijson SYSTEM INTERFACE ${VALIJSON_INCLUDE_DIR})
endif()
if(WITH_SIMULATOR)
  find_modules(ncursesw)
endif()
if(WITH_TESTS)
  find_package(GTest REQUIRED)
endif()
if(WITH_BENCHMARKS)
  find_package(benchmark REQUIRED)
  find_package(Threads REQUIRED)
endif()

# link_on_platform(TARGET PLATFORM [LIBRARY...])  The daemon's library calls a platform, and the platform's users call
# both: one group lets the linker go round.
function(link_on_platform target platform)
  target_link_libraries(${target} PRIVATE ${ARGN} "$<LINK_GROUP:RESCAN,businessserver,${platform}>")
endfunction()
