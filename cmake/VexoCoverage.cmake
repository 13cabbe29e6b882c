# Target `coverage`: runs the tests, writes a page for each file of the library to report/, prints
# what no test reaches, and fails where a layer falls short of the aim.

set(VEXO_COVERAGE_LAYERS client net log os wire)
set(report ${PROJECT_BINARY_DIR}/report)
set(gcovr gcovr --root ${PROJECT_SOURCE_DIR})
set(traced ${gcovr} --add-tracefile ${report}/data.json)

list(TRANSFORM VEXO_COVERAGE_LAYERS REPLACE "(.+)" "--filter;\\1/" OUTPUT_VARIABLE filters)
foreach(layer IN LISTS VEXO_COVERAGE_LAYERS)
  list(APPEND checks
    COMMAND ${CMAKE_COMMAND} -E echo "${layer}/"
    COMMAND ${traced} --filter ${layer}/ --print-summary --output ${report}/${layer}.txt
            --fail-under-line 95 --fail-under-branch 85)
endforeach()

include(ProcessorCount)
ProcessorCount(processors)
add_custom_target(coverage
  COMMAND find ${PROJECT_BINARY_DIR} -name *.gcda -delete
  COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${PROJECT_BINARY_DIR} --output-on-failure --parallel ${processors}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${report}
  COMMAND ${gcovr} --object-directory ${PROJECT_BINARY_DIR} --gcov-ignore-parse-errors
          --exclude-unreachable-branches --exclude-throw-branches ${filters}
          --json ${report}/data.json
  COMMAND ${traced} --html-details ${report}/index.html
  COMMAND ${traced}
  COMMAND ${traced} --branches
  ${checks}
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  USES_TERMINAL VERBATIM)
