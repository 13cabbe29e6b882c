# Language level, warnings and sanitizers, as one interface target that every target of ours links.

add_library(vexo_options INTERFACE)
target_compile_features(vexo_options INTERFACE cxx_std_20 c_std_11)
target_compile_options(vexo_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_include_directories(vexo_options INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(vexo_options INTERFACE Threads::Threads)

if(VEXO_SANITIZE)
  target_compile_options(vexo_options INTERFACE
    -fsanitize=${VEXO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vexo_options INTERFACE -fsanitize=${VEXO_SANITIZE})
endif()
