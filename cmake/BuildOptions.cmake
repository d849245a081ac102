# The compiler options of every target of this project.
find_program(ZUL_CCACHE ccache)
if(ZUL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ZUL_CCACHE})
endif()
add_library(zul_build_options INTERFACE)
target_compile_options(zul_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough)
if(ZUL_WARNINGS_AS_ERRORS)
  target_compile_options(zul_build_options INTERFACE -Werror)
endif()
# The optimiser of g++ 12 gives false warnings about sizes of vectors and strings: they are shown, but are not errors.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(zul_build_options INTERFACE
    -Wno-error=array-bounds -Wno-error=stringop-overflow -Wno-error=stringop-overread -Wno-error=restrict
    -Wno-error=format-truncation)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(zul_build_options INTERFACE -Wthread-safety)
endif()
if(ZUL_SANITIZE)
  add_compile_options(-fsanitize=${ZUL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ZUL_SANITIZE})
  add_compile_definitions(ZUL_SANITIZED=1)
endif()
if(ZUL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
target_include_directories(zul_build_options INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/src)
# The sanitized builds precompile the largest standard headers once per target, which makes them faster. The release
# build does not, so that a source with a missing include fails there.
if(ZUL_PRECOMPILE)
  target_precompile_headers(zul_build_options INTERFACE
    <algorithm> <chrono> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <set> <span> <sstream>
    <string> <string_view> <thread> <utility> <variant> <vector>)
endif()
