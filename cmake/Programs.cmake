# Targets that gather others.

# The target "programs": everything but the tests, for who only wants to run them.
function(zul_collect_targets folder result)
  set(found)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    get_target_property(left_out ${target} EXCLUDE_FROM_ALL)
    if(NOT type STREQUAL INTERFACE_LIBRARY AND NOT left_out)
      list(APPEND found ${target})
    endif()
  endforeach()
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(inner IN LISTS folders)
    zul_collect_targets(${inner} more)
    list(APPEND found ${more})
  endforeach()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

# To be called before the tests are added.
function(zul_add_programs_target)
  zul_collect_targets(${PROJECT_SOURCE_DIR} targets)
  add_custom_target(programs)
  if(targets)
    add_dependencies(programs ${targets})
  endif()
  foreach(program zulctl zul-printer-utility)
    if(TARGET ${program})
      install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
  endforeach()
endfunction()

# The target "sanitized_tests": the programs behind the labels unit and flow, which run under the sanitizers, and behind
# the label window, which runs under those of memory; and "fuzz_tests", those behind the label fuzz. zulctl is built too,
# for the compiler's check of what belongs to which queue.
# To be called after the tests are added.
function(zul_add_sanitized_tests_target)
  add_custom_target(sanitized_tests)
  set(targets unit_tests flow_tests gadget_tests)
  # The toolkit comes without the thread sanitizer's marks: what it does between threads would look like races.
  if(NOT ZUL_SANITIZE MATCHES "thread")
    list(APPEND targets window_tests zul-printer-utility zulctl)
  endif()
  foreach(target IN LISTS targets)
    if(TARGET ${target})
      add_dependencies(sanitized_tests ${target})
    endif()
  endforeach()
  add_custom_target(fuzz_tests)
  zul_collect_targets(${PROJECT_SOURCE_DIR}/tests/fuzz targets)
  add_dependencies(fuzz_tests ${targets})
  add_dependencies(sanitized_tests fuzz_tests)
endfunction()
