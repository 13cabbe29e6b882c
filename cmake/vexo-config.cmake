# find_package(vexo [COMPONENTS vexo session]): a target vexo::NAME for each component named. Without
# any, the component vexo: the interface of libvexo.so.
if(NOT vexo_FIND_COMPONENTS)
  set(vexo_FIND_COMPONENTS vexo)
  set(vexo_FIND_REQUIRED_vexo TRUE)
endif()
foreach(component IN LISTS vexo_FIND_COMPONENTS)
  include(${CMAKE_CURRENT_LIST_DIR}/vexo-${component}-targets.cmake
          OPTIONAL RESULT_VARIABLE vexo_${component}_FOUND)
  if(NOT vexo_${component}_FOUND AND vexo_FIND_REQUIRED_${component})
    set(vexo_FOUND FALSE)
    set(vexo_NOT_FOUND_MESSAGE "The component ${component} is not installed.")
  endif()
endforeach()
