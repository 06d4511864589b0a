# Install rules and Debian packages (CPack), one package per component:
#   huecontroller        the service in bin/ and its ten light-type descriptions in
#                        share/huecontroller/hue/ (the rules of the service's own folder, which
#                        name no component and so land in CMake's default component), and a
#                        note on crash dumps and the dump collector in share/doc/huecontroller/
#   huecontroller-tools  hubsim, hubctl and hue-bridge-emulator, for development and tests
# The architecture is the target's (arm64 in a cross build), the package version comes from the
# service's version stamp and Depends from the binaries' shared libraries (dpkg-shlibdeps, which
# also reads the arm64 libraries' symbol files that multiarch installs).
# Build them with `cpack -G DEB` in a build folder (scripts/package does it for both machines).

# The version stamp every crash dump carries is the service's version: "<version> build <n>".
file(STRINGS "${PROJECT_SOURCE_DIR}/common/crashhandler.cpp" _hue_stamp
     REGEX "kVersionStampPrefix\\[\\] = \"\\$Version: [0-9.]+ build [0-9]+ ")
if(NOT _hue_stamp MATCHES "Version: ([0-9.]+) build ([0-9]+) ")
    message(FATAL_ERROR "No version stamp found in common/crashhandler.cpp")
endif()
set(_hue_version "${CMAKE_MATCH_1}")
set(_hue_build_number "${CMAKE_MATCH_2}")
if(NOT _hue_version VERSION_EQUAL PROJECT_VERSION)
    message(FATAL_ERROR "The version stamp (${_hue_version}) and the project's version (${PROJECT_VERSION}) differ")
endif()

set(_hue_service_component Unspecified)
install(FILES "${CMAKE_CURRENT_LIST_DIR}/packaging/README.dump-collector"
        DESTINATION share/doc/huecontroller COMPONENT ${_hue_service_component})
install(TARGETS hubsim hubctl hue-bridge-emulator RUNTIME DESTINATION bin COMPONENT tools)

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    set(_hue_deb_arch arm64)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    set(_hue_deb_arch amd64)
else()
    execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE _hue_deb_arch
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME huecontroller)
set(CPACK_PACKAGE_VENDOR vorn)
set(CPACK_PACKAGE_VERSION "${_hue_version}+build${_hue_build_number}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${_hue_service_component} tools)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${_hue_deb_arch})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "vorn hub team <hub@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME huecontroller)
set(CPACK_DEBIAN_UNSPECIFIED_DESCRIPTION
"Philips Hue lights in the hub's device model
The hub's background service for Philips Hue bridges: discovery by SSDP and mDNS,
pairing by the link button, REST API v1 polling or CLIP API v2 events, datapoint
writes as coalesced bridge commands. Light-type descriptions in
/usr/share/huecontroller/hue (the service's data/constpath).

On a crash it writes a minidump to /tmp and starts
'dump-collector huecontroller <dump>' from PATH (provided by the hub; without
it the dump is removed). See /usr/share/doc/huecontroller/README.dump-collector.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME huecontroller-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
# hubsim's store loads Qt's SQLite driver as a plugin, which no binary links.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS libqt5sql5-sqlite)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"Development and test tools for huecontroller
hubsim (the hub's services and supervisor on a socket folder), its client
hubctl, and hue-bridge-emulator (a Philips Hue bridge on loopback).")
include(CPack)
