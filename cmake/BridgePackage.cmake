# The installed package: find_package(velmora_can_bridge [COMPONENTS library...]) gives what is
# installed, or the libraries named with those that they need, and pkg-config one name for each.
include(CMakePackageConfigHelpers)

# The libraries stand in the order in which they were added: each behind those that it needs.
get_property(libraries GLOBAL PROPERTY bridge_installed_libraries)
set(components "")
set(needs "")
file(RELATIVE_PATH pkgconfig_to_include ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(library IN LISTS libraries)
  get_target_property(component ${library} EXPORT_NAME)
  list(APPEND components ${component})

  get_target_property(needed ${library} LINK_LIBRARIES)
  list(FILTER needed INCLUDE REGEX "^velmora_can_bridge")
  string(REPLACE ";" " " requires "${needed}")
  list(TRANSFORM needed REPLACE "^velmora_can_bridge_" "")
  string(APPEND needs "set(velmora_can_bridge_${component}_needs ${needed})\n")

  set(link_name ${library})
  set(link_options "")
  get_target_property(type ${library} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    # By its file's name: a shared library that was installed here before would go first.
    set(link_name :lib${library}.a)
    get_target_property(packages ${library} bridge_static_needs)
    string(APPEND needs "set(velmora_can_bridge_${component}_packages ${packages})\n")
    string(APPEND requires " ${packages}")
  elseif(NOT CMAKE_SKIP_INSTALL_RPATH AND NOT CMAKE_SKIP_RPATH)
    # So that what is linked with these flags starts from wherever the libraries are. The path leads
    # through the folder of the pkg-config files, which has to be there where programs only run, too.
    set(link_options " -Wl,-rpath,\${libdir}")
    install(DIRECTORY DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT runtime)
  endif()
  if(component STREQUAL PROJECT_NAME)
    string(APPEND link_options " -pthread")
  endif()

  get_target_property(description ${library} bridge_description)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/velmora_can_bridge.pc.in
                 ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
install(DIRECTORY ${made_headers}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/velmora_can_bridge)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/velmora_can_bridgeConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfig.cmake INSTALL_DESTINATION ${package_dir})
# Until 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velmora_can_bridgeConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfig.cmake
              ${PROJECT_BINARY_DIR}/velmora_can_bridgeConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The headers refer to the documents, which refer to the examples beside their folder. In a parent
# project that is not the parent's.
set(document_folder ${CMAKE_INSTALL_DOCDIR})
if(NOT PROJECT_IS_TOP_LEVEL)
  set(document_folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${PROJECT_NAME})
endif()
install(
  DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples
  DESTINATION ${document_folder}
  COMPONENT documentation
  PATTERN CMakeLists.txt EXCLUDE)
