# vexo_layer(SOURCES ... PUBLIC_HEADERS ...): adds the sources of the calling folder to the library,
# and its public headers to what is installed and to what the header test compiles.
function(vexo_layer)
  cmake_parse_arguments(PARSE_ARGV 0 layer "" "" "SOURCES;PUBLIC_HEADERS")
  list(TRANSFORM layer_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(vexo_objects PRIVATE ${layer_SOURCES})
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
  list(TRANSFORM layer_PUBLIC_HEADERS PREPEND ${folder}/)
  set_property(GLOBAL APPEND PROPERTY VEXO_PUBLIC_HEADERS ${layer_PUBLIC_HEADERS})
endfunction()
