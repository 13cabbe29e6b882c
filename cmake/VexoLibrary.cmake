include(CMakePackageConfigHelpers)

set(VEXO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexo)
set(VEXO_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(VEXO_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/exports.map)
# The prefix is found from the place of the file, so that the installed tree can be moved.
string(REGEX REPLACE "[^/]+" ".." VEXO_PREFIX_FROM_PKGCONFIG ${VEXO_PKGCONFIG_DIR})

# vexo_shared_library(TARGET COMPONENT NAME DESCRIPTION TEXT OBJECTS ...): libTARGET.so of the named
# object libraries, and its installation: find_package(vexo COMPONENTS NAME) gives the target
# vexo::NAME, and pkg-config knows TARGET. Its public headers are the header set of the target; each
# folder adds its own (target_sources), and those are installed and compiled by the header tests.
function(vexo_shared_library target)
  cmake_parse_arguments(PARSE_ARGV 1 library "" "COMPONENT;DESCRIPTION" "OBJECTS")
  add_library(${target} SHARED)
  add_library(vexo::${library_COMPONENT} ALIAS ${target})
  target_link_libraries(${target} PRIVATE ${library_OBJECTS} vexo_options)
  target_sources(${target} PUBLIC FILE_SET HEADERS
    BASE_DIRS ${PROJECT_SOURCE_DIR}
    FILES ${PROJECT_SOURCE_DIR}/vexo_export.h)
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${library_COMPONENT}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE CXX
    LINK_DEPENDS ${VEXO_VERSION_SCRIPT}
    VERIFY_INTERFACE_HEADER_SETS ON)
  # Its threads may outlive a dlclose: once loaded, it stays.
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${VEXO_VERSION_SCRIPT} -Wl,-z,nodelete)
  if(NOT VEXO_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()

  set(export vexo-${library_COMPONENT}-targets)
  install(TARGETS ${target} EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexo)
  install(EXPORT ${export} NAMESPACE vexo:: DESTINATION ${VEXO_CMAKE_DIR})
  set(VEXO_LIBRARY ${target})
  set(VEXO_DESCRIPTION ${library_DESCRIPTION})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${target}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${target}.pc DESTINATION ${VEXO_PKGCONFIG_DIR})
endfunction()

write_basic_package_version_file(vexo-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_SOURCE_DIR}/cmake/vexo-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vexo-config-version.cmake
  DESTINATION ${VEXO_CMAKE_DIR})
