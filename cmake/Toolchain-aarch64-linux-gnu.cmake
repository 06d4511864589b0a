# Cross build for the hub's aarch64 on a Debian x86-64 machine, with Debian's multiarch: the
# cross compiler of crossbuild-essential-arm64 and the arm64 development packages installed
# beside the native ones (scripts/cross installs both). Libraries, headers and CMake package files
# of arm64 live in the normal prefix under the multiarch triplet, so no sysroot is needed; the
# triplet below makes find_library() and find_package() look in /usr/lib/aarch64-linux-gnu.
#
# Qt's moc, uic and rcc are the host's: Qt's arm64 package files name /usr/lib/qt5/bin, which
# holds the native tools of qtbase5-dev-tools.
#
# Test programs run under qemu-user (CMAKE_CROSSCOMPILING_EMULATOR, used by ctest). The arm64
# loader /lib/ld-linux-aarch64.so.1 and the multiarch libraries are in the host's root, so qemu
# needs no -L.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Only arm64 libraries and package files; programs (moc, make, pkg-config) from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)

# pkg-config (cpp-httplib) reads the arm64 .pc files and the architecture-independent ones.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")

# Test programs that start children through QProcess get cmake/qemu/nopidfd.c preloaded: without
# it Qt's forkfd picks clone(CLONE_PIDFD), which qemu-user 7.2 refuses. The preload is set in
# the emulated program's environment, so the aarch64 children it starts (through binfmt_misc,
# see scripts/cross) inherit it. Built here, once per configure, outside try_compile projects.
find_program(HUE_QEMU_AARCH64 NAMES qemu-aarch64-static qemu-aarch64)
get_property(_hue_in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(HUE_QEMU_AARCH64 AND NOT _hue_in_try_compile)
    set(_hue_preload "${CMAKE_BINARY_DIR}/qemu/libnopidfd.so")
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/qemu")
    execute_process(
        COMMAND ${CMAKE_C_COMPILER} -shared -fPIC -O2 -Wall -Wextra -Werror
                -o "${_hue_preload}" "${CMAKE_CURRENT_LIST_DIR}/qemu/nopidfd.c" -ldl
        RESULT_VARIABLE _hue_preload_result)
    if(NOT _hue_preload_result EQUAL 0)
        message(FATAL_ERROR "Could not build ${_hue_preload} for the tests under qemu")
    endif()
    set(CMAKE_CROSSCOMPILING_EMULATOR "${HUE_QEMU_AARCH64};-E;LD_PRELOAD=${_hue_preload}")
endif()
