# Breakpad's client library (the in-process minidump writer), built from the unmodified Breakpad
# source that the npm package "minidump" ships, and offered as the imported target
# breakpad::client. The package also brings prebuilt tools (minidump_stackwalk, minidump_dump,
# dump_syms) that the crash test uses; their folder is HUE_BREAKPAD_TOOLS_DIR.
#
# Breakpad's own autotools build runs out of source inside this build tree, so the package folder
# is only ever read. It gets its own compiler flags: the project's warnings, sanitizers and fuzzer
# instrumentation are not meant for third-party code, and an uninstrumented static library links
# fine into a sanitizer build.

include(ExternalProject)
find_package(Threads REQUIRED)

set(_hue_minidump_pkg "${HUE_NPM_DIR}/minidump")
set(_hue_breakpad_src "${_hue_minidump_pkg}/deps/breakpad")
# Breakpad includes "third_party/lss/linux_syscall_support.h"; the package keeps lss next to
# Breakpad instead of inside it, so its parent folder goes on the include path.
set(_hue_breakpad_deps "${_hue_minidump_pkg}/deps")

if(NOT EXISTS "${_hue_breakpad_src}/configure"
   OR NOT EXISTS "${_hue_breakpad_src}/src/client/linux/handler/exception_handler.h"
   OR NOT EXISTS "${_hue_breakpad_deps}/third_party/lss/linux_syscall_support.h")
    message(FATAL_ERROR
        "Breakpad's source was not found in ${_hue_minidump_pkg} (npm package \"minidump\").\n"
        "Run scripts/bootstrap to install it, point HUE_NPM_DIR at the node_modules folder that "
        "holds it, or configure with -DHUE_WITH_BREAKPAD=OFF to build without crash dumps.")
endif()

set(HUE_BREAKPAD_TOOLS_DIR "${_hue_minidump_pkg}/bin/linux-x64" CACHE INTERNAL
    "Prebuilt Breakpad tools of the npm package minidump")

set(_hue_breakpad_build "${CMAKE_BINARY_DIR}/third_party/breakpad")
set(_hue_breakpad_lib "${_hue_breakpad_build}/build/src/client/linux/libbreakpad_client.a")

# GCC 12 warns about Breakpad's code, and Breakpad's configure turns warnings into errors.
set(_hue_breakpad_flags "-g -O2 -fPIC -Wno-error")

# A cross build configures Breakpad for the target's triplet (the toolchain file's multiarch
# triplet, e.g. aarch64-linux-gnu); a native build lets configure guess the machine.
set(_hue_breakpad_host)
if(CMAKE_CROSSCOMPILING)
    if(NOT CMAKE_LIBRARY_ARCHITECTURE)
        message(FATAL_ERROR "A cross build of Breakpad needs CMAKE_LIBRARY_ARCHITECTURE (the target triplet) from the toolchain file")
    endif()
    set(_hue_breakpad_host "--host=${CMAKE_LIBRARY_ARCHITECTURE}")
endif()

# Inside a Makefile build, $(MAKE) shares the job server; under Ninja, pick the job count here.
if(CMAKE_GENERATOR MATCHES "Makefiles")
    set(_hue_make "$(MAKE)")
else()
    find_program(HUE_MAKE_PROGRAM NAMES gmake make REQUIRED)
    cmake_host_system_information(RESULT _hue_cores QUERY NUMBER_OF_LOGICAL_CORES)
    set(_hue_make "${HUE_MAKE_PROGRAM}" -j${_hue_cores})
endif()

ExternalProject_Add(breakpad_client_build
    PREFIX "${_hue_breakpad_build}"
    SOURCE_DIR "${_hue_breakpad_src}"
    BINARY_DIR "${_hue_breakpad_build}/build"
    DOWNLOAD_COMMAND ""
    UPDATE_COMMAND ""
    # The environment is spelled out so that flags of the calling shell do not leak in.
    CONFIGURE_COMMAND
        ${CMAKE_COMMAND} -E env
            "CC=${CMAKE_C_COMPILER}" "CXX=${CMAKE_CXX_COMPILER}"
            "CPPFLAGS=-I${_hue_breakpad_deps}" "CFLAGS=${_hue_breakpad_flags}"
            "CXXFLAGS=${_hue_breakpad_flags}" "LDFLAGS="
        <SOURCE_DIR>/configure --disable-processor --disable-tools --disable-maintainer-mode
            ${_hue_breakpad_host}
    BUILD_COMMAND ${_hue_make} src/client/linux/libbreakpad_client.a
    INSTALL_COMMAND ""
    BUILD_BYPRODUCTS "${_hue_breakpad_lib}"
    LOG_CONFIGURE ON
    LOG_BUILD ON
    LOG_OUTPUT_ON_FAILURE ON
)

add_library(breakpad::client STATIC IMPORTED GLOBAL)
set_target_properties(breakpad::client PROPERTIES
    IMPORTED_LOCATION "${_hue_breakpad_lib}"
    INTERFACE_INCLUDE_DIRECTORIES "${_hue_breakpad_src}/src;${_hue_breakpad_deps}"
    INTERFACE_LINK_LIBRARIES Threads::Threads
)
add_dependencies(breakpad::client breakpad_client_build)
