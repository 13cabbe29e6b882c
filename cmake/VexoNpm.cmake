# vexo_npm(TARGET): a target that installs exactly what package-lock.json of the calling folder names,
# to node_modules in its build directory, and again when the lock changes.
function(vexo_npm target)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/node_modules/.package-lock.json)
  set(sources ${CMAKE_CURRENT_SOURCE_DIR}/package.json ${CMAKE_CURRENT_SOURCE_DIR}/package-lock.json)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -E copy ${sources} ${CMAKE_CURRENT_BINARY_DIR}
    COMMAND npm ci --no-audit --no-fund --loglevel=error
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${sources}
    COMMENT "Installing npm packages for ${target}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS ${stamp})
endfunction()
