# 32-bit ARM (hard float) with Debian's cross compiler. Headers and libraries come from a private sysroot that is made
# at the first configuration; tests run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(arm_triplet arm-linux-gnueabihf)
set(ARM_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot CACHE PATH "Unpacked Debian armhf packages")
get_filename_component(arm_sysroot ${ARM_SYSROOT} ABSOLUTE)
# CMake reads this file again for each of its compiler checks.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARM_SYSROOT)

execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/mk-sysroot.sh ${arm_sysroot} COMMAND_ERROR_IS_FATAL ANY)

set(CMAKE_C_COMPILER ${arm_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${arm_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${arm_triplet})
set(CMAKE_SYSROOT ${arm_sysroot})
set(CMAKE_FIND_ROOT_PATH ${arm_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${arm_sysroot}/usr/lib/${arm_triplet}/pkgconfig:${arm_sysroot}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${arm_sysroot})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;${arm_sysroot})
