# libvexo.so from the objects of the layers, its installation, and the same objects as a static
# library for tests that look inside.

vexo_library_objects(vexo_objects)

set(VEXO_VERSION_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/libvexo.map)
add_library(vexo SHARED)
target_link_libraries(vexo PRIVATE vexo_objects vexo_base vexo_options)
target_include_directories(vexo PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vexo>)
set_target_properties(vexo PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINKER_LANGUAGE CXX
  LINK_DEPENDS ${VEXO_VERSION_SCRIPT})
target_link_options(vexo PRIVATE -Wl,--version-script=${VEXO_VERSION_SCRIPT})
if(NOT VEXO_SANITIZE)
  target_link_options(vexo PRIVATE -Wl,--no-undefined)
endif()
add_library(vexo::vexo ALIAS vexo)

add_library(vexo_internal STATIC EXCLUDE_FROM_ALL)
target_link_libraries(vexo_internal PRIVATE vexo_objects vexo_base PUBLIC vexo_options)
set_target_properties(vexo_internal PROPERTIES LINKER_LANGUAGE CXX)

set(VEXO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vexo)
install(TARGETS vexo EXPORT vexo-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT vexo-targets NAMESPACE vexo:: FILE vexo-config.cmake
        DESTINATION ${VEXO_CMAKE_DIR})
include(CMakePackageConfigHelpers)
write_basic_package_version_file(vexo-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vexo-config-version.cmake
        DESTINATION ${VEXO_CMAKE_DIR})
get_property(headers GLOBAL PROPERTY VEXO_PUBLIC_HEADERS)
foreach(header IN LISTS headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vexo/${folder})
endforeach()
# The prefix is found from the place of the file, so that the installed tree can be moved.
set(VEXO_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
string(REGEX REPLACE "[^/]+" ".." VEXO_PREFIX_FROM_PKGCONFIG ${VEXO_PKGCONFIG_DIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/vexo.pc.in vexo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vexo.pc DESTINATION ${VEXO_PKGCONFIG_DIR})
