# Language level, warnings and sanitizers, as one interface target that every target of ours links.
# That warnings are errors is a matter of the presets: whoever builds a package has another compiler.

add_library(vexo_options INTERFACE)
target_compile_features(vexo_options INTERFACE cxx_std_20 c_std_11)
target_compile_options(vexo_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
target_include_directories(vexo_options INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(vexo_options INTERFACE Threads::Threads)

if(VEXO_SANITIZE)
  target_compile_options(vexo_options INTERFACE
    -fsanitize=${VEXO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vexo_options INTERFACE -fsanitize=${VEXO_SANITIZE})
endif()
