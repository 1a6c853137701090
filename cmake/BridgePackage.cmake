# The installed package: find_package(velmora_can_bridge [COMPONENTS bus config simulator values
# traffic bridge]), where each component brings those that it needs, and pkg-config velmora_can_bridge for the
# core.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velmora_can_bridge)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/velmora_can_bridgeConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfig.cmake INSTALL_DESTINATION ${package_dir})
# Until 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velmora_can_bridgeConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfig.cmake
              ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfigVersion.cmake
        DESTINATION ${package_dir})

# Relative to the file itself, so that an install tree can be moved.
file(RELATIVE_PATH pkgconfig_to_include ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/velmora_can_bridge.pc.in
               ${PROJECT_BINARY_DIR}/velmora_can_bridge.pc @ONLY)
# The headers refer to them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_BINARY_DIR}/velmora_can_bridge.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
