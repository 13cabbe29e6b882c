# vexo_library_objects(TARGET): how everything that a library is made of is compiled.
function(vexo_library_objects target)
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
  # Names and packages are short, and the C library's copies far quicker to begin than the string
  # instructions that GCC puts in their place.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE
      -mmemcpy-strategy=libcall:-1:align -mmemset-strategy=libcall:-1:align)
  endif()
  target_compile_definitions(${target} PRIVATE VEXO_BUILDING)
  target_link_libraries(${target} PRIVATE vexo_options)
endfunction()

# vexo_layer(SOURCES ... PUBLIC_HEADERS ...): adds the sources and the public headers of the calling
# folder to libvexo.so.
function(vexo_layer)
  cmake_parse_arguments(PARSE_ARGV 0 layer "" "" "SOURCES;PUBLIC_HEADERS")
  list(TRANSFORM layer_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  list(TRANSFORM layer_PUBLIC_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(vexo_objects PRIVATE ${layer_SOURCES})
  target_sources(vexo PUBLIC FILE_SET HEADERS FILES ${layer_PUBLIC_HEADERS})
endfunction()
