# SPDX-License-Identifier: Apache-2.0
# What is installed, in three parts: the libraries (runtime); what a program is built with (dev), where
# the headers and libraries that stand in for the device lie apart, under qoz-desk; the player and the
# service's process (tools).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QOZ_DESK_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qoz-desk)
set(QOZ_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qoz_vppsession)

install(DIRECTORY include/qoz DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY src/platform/ ${QOZ_PACKAGE_DIR}/aidl DESTINATION ${QOZ_DESK_DIR} COMPONENT dev
  FILES_MATCHING PATTERN *.h)
install(FILES host/control.h DESTINATION ${QOZ_DESK_DIR}/host COMPONENT dev)

# All that a client on a Linux machine links besides the library.
add_library(qoz_desk INTERFACE)
target_link_libraries(qoz_desk INTERFACE qoz_vppservice qoz_rgb2yuv qoz_platform)

foreach(name IN ITEMS vppsession vpppackage platform rgb2yuv vppservice seam desk)
  list(APPEND QOZ_INSTALLED qoz_${name})
  set_target_properties(qoz_${name} PROPERTIES EXPORT_NAME ${name})
endforeach()
# The libraries find each other where they lie.
set(QOZ_SHARED qoz_vppsession qoz_vpppackage qoz_platform qoz_rgb2yuv)
set_target_properties(${QOZ_SHARED} PROPERTIES INSTALL_RPATH $ORIGIN)
set_target_properties(qoz_vpppackage qoz_platform qoz_rgb2yuv PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION 0)

install(TARGETS ${QOZ_INSTALLED} EXPORT qoz_vppsessionTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${QOZ_DESK_DIR})
install(EXPORT qoz_vppsessionTargets NAMESPACE qoz:: DESTINATION ${QOZ_CONFIG_DIR} COMPONENT dev)

# The service in a process of its own is a component of the package, as it needs sdbus-c++.
if(TARGET qoz_vppremote)
  set_target_properties(qoz_vppremote PROPERTIES EXPORT_NAME vppremote)
  install(TARGETS qoz_vppremote EXPORT qoz_vppremoteTargets ARCHIVE COMPONENT dev)
  install(EXPORT qoz_vppremoteTargets NAMESPACE qoz:: DESTINATION ${QOZ_CONFIG_DIR} COMPONENT dev)
  install(FILES host/vppd/RemoteService.h host/vppd/PrivateBus.h
    DESTINATION ${QOZ_DESK_DIR}/host/vppd COMPONENT dev)
  set(QOZ_TOOLS qoz-vppd)
endif()

list(APPEND QOZ_TOOLS qozplay)
file(RELATIVE_PATH QOZ_LIBRARIES_FROM_TOOLS
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${QOZ_TOOLS} PROPERTIES INSTALL_RPATH $ORIGIN/${QOZ_LIBRARIES_FROM_TOOLS})
install(TARGETS ${QOZ_TOOLS} RUNTIME COMPONENT tools)

configure_package_config_file(cmake/qoz_vppsessionConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfig.cmake INSTALL_DESTINATION ${QOZ_CONFIG_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfigVersion.cmake
  DESTINATION ${QOZ_CONFIG_DIR} COMPONENT dev)

foreach(name IN ITEMS qoz_vppsession qoz_desk)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

# cpack -G DEB makes a package of each part.
set(CPACK_PACKAGE_VENDOR "libqoz_vppsession")
set(CPACK_PACKAGE_CONTACT "libqoz_vppsession")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Frames through a device's video post-processing service")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_CURRENT_BINARY_DIR}/host/platform ${CMAKE_CURRENT_BINARY_DIR}/host/vpppackage
  ${CMAKE_CURRENT_BINARY_DIR}/host/converter ${CMAKE_CURRENT_BINARY_DIR}/src)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqoz-vppsession0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The library, and the platform that stands in for a device.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqoz-vppsession-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libyuv-dev, libhwy-dev, libzimg-dev, libsdbus-c++-dev")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers, and packages for CMake and pkg-config.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qoz-vppsession-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "dbus, util-linux")
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "qozplay plays a clip through the library; qoz-vppd is the simulated service.")
foreach(part IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${part} upper)
  install(FILES cmake/copyright COMPONENT ${part}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()
include(CPack)
