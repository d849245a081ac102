# zul_add_headers(TARGET [FOLDER...]): the headers of the current folder, and of more folders, belong to the library.
#
# The target all_verify_interface_header_sets compiles each header that has no source of its own by itself, so that a
# missing include fails there. A source includes its own header first, so that the other headers are compiled by
# themselves already.
function(zul_add_headers target)
  set(folders ${ARGN})
  list(TRANSFORM folders APPEND /*.h)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS *.h ${folders})
  set(alone)
  foreach(header IN LISTS headers)
    string(REGEX REPLACE "h$" "cpp" own ${header})
    if(NOT EXISTS ${own})
      list(APPEND alone ${header})
    endif()
  endforeach()
  list(REMOVE_ITEM headers ${alone})
  target_sources(${target} PUBLIC
    FILE_SET HEADERS BASE_DIRS ${ZUL_SOURCE_ROOT} FILES ${headers}
    FILE_SET alone TYPE HEADERS BASE_DIRS ${ZUL_SOURCE_ROOT} FILES ${alone})
  set_target_properties(${target} PROPERTIES
    VERIFY_INTERFACE_HEADER_SETS ON INTERFACE_HEADER_SETS_TO_VERIFY alone)
endfunction()
