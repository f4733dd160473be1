# What is installed: the library with its public headers and, under qoz-desk, the headers and
# libraries that stand in for the device on a desk machine.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QOZ_DESK_DIR ${CMAKE_INSTALL_INCLUDEDIR}/qoz-desk)
set(QOZ_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qoz_vppsession)

install(DIRECTORY include/qoz DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY src/platform/ ${QOZ_PACKAGE_DIR}/aidl DESTINATION ${QOZ_DESK_DIR} FILES_MATCHING PATTERN *.h)
install(FILES host/control.h DESTINATION ${QOZ_DESK_DIR}/host)

# All that a client on a desk machine links besides the library.
add_library(qoz_desk INTERFACE)
target_link_libraries(qoz_desk INTERFACE qoz_vppservice qoz_rgb2yuv qoz_platform)

foreach(name IN ITEMS vppsession vpppackage platform rgb2yuv vppservice seam desk)
  list(APPEND QOZ_INSTALLED qoz_${name})
  set_target_properties(qoz_${name} PROPERTIES EXPORT_NAME ${name})
endforeach()
# The libraries find each other where they lie.
set_target_properties(qoz_vppsession qoz_vpppackage qoz_platform qoz_rgb2yuv PROPERTIES INSTALL_RPATH $ORIGIN)
set_target_properties(qoz_vpppackage qoz_platform qoz_rgb2yuv PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)

install(TARGETS ${QOZ_INSTALLED} EXPORT qoz_vppsessionTargets
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${QOZ_DESK_DIR})
install(EXPORT qoz_vppsessionTargets NAMESPACE qoz:: DESTINATION ${QOZ_CONFIG_DIR})
configure_package_config_file(cmake/qoz_vppsessionConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfig.cmake INSTALL_DESTINATION ${QOZ_CONFIG_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/qoz_vppsessionConfigVersion.cmake
  DESTINATION ${QOZ_CONFIG_DIR})

foreach(name IN ITEMS qoz_vppsession qoz_desk)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# cpack -G DEB
set(CPACK_PACKAGE_NAME libqoz-vppsession-dev)
set(CPACK_PACKAGE_VENDOR "libqoz_vppsession")
set(CPACK_PACKAGE_CONTACT "libqoz_vppsession")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Frames through a device's video post-processing service, with a desk machine to run it on")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libyuv-dev, libhwy-dev")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_CURRENT_BINARY_DIR}/host/platform ${CMAKE_CURRENT_BINARY_DIR}/host/vpppackage
  ${CMAKE_CURRENT_BINARY_DIR}/host/converter
  ${CMAKE_CURRENT_BINARY_DIR}/src)
include(CPack)
