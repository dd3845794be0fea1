# Compiler, linker and output folders for the whole tree.
include_guard()

set(TARN_SANITIZER "" CACHE STRING "Sanitizers for -fsanitize=, empty for none")
option(TARN_FUZZ "Build the libFuzzer programs (clang only)" OFF)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

# Relative run paths: a build folder can be moved, and an installed program finds the libraries beside it.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Woverloaded-virtual -Wsuggest-override -Wnon-virtual-dtor -Werror
  # Paths in objects are relative to the tree, so two checkouts of one commit give the same bytes and share ccache's.
  "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(TARN_SANITIZER)
  add_compile_options(-fsanitize=${TARN_SANITIZER} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARN_SANITIZER})
endif()
if(TARN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(TARN_MOLD mold)
find_program(TARN_LLD ld.lld)
mark_as_advanced(TARN_MOLD TARN_LLD)
if(TARN_MOLD)
  add_link_options(-fuse-ld=mold)
elseif(TARN_LLD)
  add_link_options(-fuse-ld=lld)
endif()
add_link_options(-Wl,--as-needed)

find_program(TARN_CCACHE ccache)
mark_as_advanced(TARN_CCACHE)
if(TARN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      "${CMAKE_COMMAND}" -E env
      "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1
      CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      "${TARN_CCACHE}")
endif()
