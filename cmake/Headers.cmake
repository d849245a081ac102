# The target "headers" compiles each header by itself and twice in one file. A header without its own includes or its
# guard fails here. A header that its own source includes first is compiled there already.
function(zul_add_headers_target)
  file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR}/src CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.h)
  list(FILTER headers EXCLUDE REGEX "^ui/|^AppDelegate") # the toolkit's own headers would take most of the time
  set(sources)
  foreach(header IN LISTS headers)
    string(REGEX REPLACE "h$" "cpp" own ${PROJECT_SOURCE_DIR}/src/${header})
    if(EXISTS ${own})
      file(STRINGS ${own} first LIMIT_COUNT 1 REGEX "^#include")
      if(first STREQUAL "#include \"${header}\"")
        continue()
      endif()
    endif()
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_BINARY_DIR}/headers/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
    list(APPEND sources ${source})
  endforeach()
  add_library(headers OBJECT EXCLUDE_FROM_ALL ${sources})
  find_package(CLI11 REQUIRED)
  target_link_libraries(headers PRIVATE zul_engine zul_virtual_printer zul_session zul_usb_libusb CLI11::CLI11
    nlohmann_json::nlohmann_json)
endfunction()
