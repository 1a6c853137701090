# How every target of the project is built.

# The settings of one of our own targets.
function(bridge_settings target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  if(VELMORA_CAN_BRIDGE_STRICT)
    target_compile_options(
      ${target}
      PRIVATE -Wall
              -Wextra
              -Wpedantic
              -Wcast-qual
              -Wconversion
              -Wdouble-promotion
              -Wformat=2
              -Wnon-virtual-dtor
              -Wold-style-cast
              -Woverloaded-virtual
              -Wshadow
              -Wsign-conversion
              -Wundef
              $<$<CXX_COMPILER_ID:Clang>:-Wreserved-identifier>
              -Werror)
  endif()
  if(VELMORA_CAN_BRIDGE_STRICT AND CMAKE_UNITY_BUILD)
    # A local of one source may have the name of a constant in its neighbour; other presets compile
    # each source alone and look.
    target_compile_options(${target} PRIVATE -Wno-shadow)
  endif()
  if(VELMORA_CAN_BRIDGE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${VELMORA_CAN_BRIDGE_SANITIZE}
                                             -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${VELMORA_CAN_BRIDGE_SANITIZE})
  endif()
endfunction()

# A library with its public headers under include/ and its sources under src/ of its folder. Its
# name outside is velmora_can_bridge:: and what follows the "velmora_can_bridge_" of the target.
# All share the small private headers of the ground floor. As a shared library it shows what its
# public headers declare and nothing else; as an archive it may become part of a shared library.
function(bridge_add_library target)
  add_library(${target} ${ARGN})
  string(REGEX REPLACE "^velmora_can_bridge_" "" exported ${target})
  add_library(velmora_can_bridge::${exported} ALIAS ${target})
  # Until 1.0 the minor version is the binary interface.
  set_target_properties(
    ${target}
    PROPERTIES EXPORT_NAME ${exported}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON
               POSITION_INDEPENDENT_CODE ON)
  bridge_settings(${target})
  target_include_directories(
    ${target}
    PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/ground/include)
  set_property(TARGET ${target} PROPERTY bridge_include_dir ${CMAKE_CURRENT_SOURCE_DIR}/include)
endfunction()

# Lets an installed target find the shared libraries beside it, wherever its tree was moved to. A
# distribution's package, which has its libraries where the loader looks, says CMAKE_SKIP_INSTALL_RPATH.
function(bridge_set_install_rpath target directory)
  file(RELATIVE_PATH to_libraries ${directory} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_property(TARGET ${target} PROPERTY INSTALL_RPATH "$ORIGIN/${to_libraries}")
endfunction()

# Installs a library with its headers, as a component of the package:
# bridge_install_library(TARGET DESCRIPTION text [STATIC_NEEDS package]), where the package is what
# who links the archive has to link as well, by its name for CMake and for pkg-config.
function(bridge_install_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESCRIPTION;STATIC_NEEDS" "")
  if(NOT VELMORA_CAN_BRIDGE_INSTALL)
    return()
  endif()
  set_target_properties(${target} PROPERTIES bridge_description "${arg_DESCRIPTION}"
                                             bridge_static_needs "${arg_STATIC_NEEDS}")
  set_property(GLOBAL APPEND PROPERTY bridge_installed_libraries ${target})
  bridge_set_install_rpath(${target} ${CMAKE_INSTALL_FULL_LIBDIR})
  install(
    TARGETS ${target}
    EXPORT ${target}_targets
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  install(
    EXPORT ${target}_targets
    NAMESPACE velmora_can_bridge::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/velmora_can_bridge
    COMPONENT development)
endfunction()

function(bridge_install_program target)
  if(NOT VELMORA_CAN_BRIDGE_INSTALL)
    return()
  endif()
  if(BUILD_SHARED_LIBS)
    bridge_set_install_rpath(${target} ${CMAKE_INSTALL_FULL_BINDIR})
  endif()
  install(TARGETS ${target} RUNTIME COMPONENT program)
endfunction()

# GoogleTest's headers, compiled once for all tests, and the main of test programs; in the builds that
# compile several sources as one with tests with parameters that compile quickly. Before the first
# target that holds tests.
function(bridge_add_test_headers)
  set(support ${PROJECT_SOURCE_DIR}/tests/support)
  add_library(velmora_can_bridge_test_headers STATIC ${support}/test_headers.cpp)
  bridge_settings(velmora_can_bridge_test_headers)
  target_precompile_headers(velmora_can_bridge_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  target_link_libraries(velmora_can_bridge_test_headers PUBLIC GTest::gmock)
  if(CMAKE_UNITY_BUILD AND NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
    target_sources(velmora_can_bridge_test_headers PRIVATE ${support}/quick_parameters.cpp)
    target_include_directories(velmora_can_bridge_test_headers PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_precompile_headers(velmora_can_bridge_test_headers PRIVATE ${support}/quick_parameters.hpp)
  else()
    target_link_libraries(velmora_can_bridge_test_headers PUBLIC GTest::gtest_main)
  endif()
endfunction()

# The settings of a target that holds tests. Sees the private headers of the library whose folder it
# stands in, and the ground floor's.
function(bridge_test_settings target)
  bridge_settings(${target})
  target_include_directories(
    ${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/../src
                      ${PROJECT_SOURCE_DIR}/ground/include ${PROJECT_SOURCE_DIR}/tests)
  # Compiled once for all tests; the lint and tsan-clang presets do without, so that includes stay honest.
  target_link_libraries(${target} PUBLIC velmora_can_bridge_test_headers)
  target_precompile_headers(${target} REUSE_FROM velmora_can_bridge_test_headers)
endfunction()

# A test program: bridge_add_test(NAME LIBRARIES lib... SOURCES file...).
function(bridge_add_test target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES;SOURCES")
  add_executable(${target} ${arg_SOURCES})
  bridge_test_settings(${target})
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES})
  if(VELMORA_CAN_BRIDGE_TEST_PROGRAMS_WHOLE)
    add_test(NAME ${target} COMMAND ${target} --gtest_brief=1)
    set_tests_properties(${target} PROPERTIES TIMEOUT 600)
  else()
    gtest_discover_tests(${target} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES TIMEOUT 120)
  endif()
endfunction()

# Lets the tests of a target find the repository, the board file of the examples and the documents.
function(bridge_add_repository_paths target)
  file(
    CONFIGURE
    OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/repository_paths.hpp
    CONTENT "#pragma once\ninline constexpr char example_board_path[] =\n    \"${PROJECT_SOURCE_DIR}/examples/robot_board.yaml\";\ninline constexpr char docs_path[] =\n    \"${PROJECT_SOURCE_DIR}/docs\";\ninline constexpr char repository_path[] =\n    \"${PROJECT_SOURCE_DIR}\";\n"
    @ONLY)
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
endfunction()

# Compiles every public header of the library alone.
function(bridge_add_header_check library)
  get_target_property(include_dir ${library} bridge_include_dir)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${include_dir} ${include_dir}/*.hpp)
  set(sources "")
  foreach(header IN LISTS headers)
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/header_check/${name}.cpp)
    # Twice, so that a missing include guard is seen as well.
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
    list(APPEND sources ${source})
  endforeach()
  add_library(${library}_header_check OBJECT ${sources})
  set_property(TARGET ${library}_header_check PROPERTY UNITY_BUILD OFF)
  bridge_settings(${library}_header_check)
  target_link_libraries(${library}_header_check PRIVATE ${library})
endfunction()

# Compiles the source as C++20 and as C++2b; all_public_headers.hpp there includes every public header
# of the libraries.
function(bridge_add_standards_check source)
  set(includes "")
  foreach(library IN LISTS ARGN)
    get_target_property(include_dir ${library} bridge_include_dir)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${include_dir} ${include_dir}/*.hpp)
    foreach(header IN LISTS headers)
      string(APPEND includes "#include \"${header}\"\n")
    endforeach()
  endforeach()
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/standards)
  file(CONFIGURE OUTPUT ${folder}/all_public_headers.hpp CONTENT "${includes}")
  foreach(standard IN ITEMS 20 23)
    set(target velmora_can_bridge_cpp${standard}_check)
    add_library(${target} OBJECT ${source})
    bridge_settings(${target})
    set_target_properties(${target} PROPERTIES CXX_STANDARD ${standard})
    target_include_directories(${target} PRIVATE ${folder})
    target_link_libraries(${target} PRIVATE ${ARGN})
  endforeach()
endfunction()
