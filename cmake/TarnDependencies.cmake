# Third-party packages. Each is one imported target, found once here, named in the LINK of the room that uses it.
include_guard()

find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS filesystem iostreams system thread)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(tinyxml2 REQUIRED)
find_package(zstd REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark QUIET)

# A package without a CMake configuration of its own: tarn_imported(<Tarn::name> HEADER h LIBRARY l).
function(tarn_imported name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "HEADER;LIBRARY" "")
  string(MAKE_C_IDENTIFIER "${name}" id)
  find_path(${id}_INCLUDE_DIR "${ARG_HEADER}" REQUIRED)
  find_library(${id}_LIBRARY "${ARG_LIBRARY}" REQUIRED)
  mark_as_advanced(${id}_INCLUDE_DIR ${id}_LIBRARY)
  add_library(${name} UNKNOWN IMPORTED GLOBAL)
  set_target_properties(${name} PROPERTIES
    IMPORTED_LOCATION "${${id}_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${${id}_INCLUDE_DIR}")
endfunction()

tarn_imported(Tarn::lz4 HEADER lz4.h LIBRARY lz4)
tarn_imported(Tarn::isal HEADER isa-l/crc.h LIBRARY isal)
tarn_imported(Tarn::xxhash HEADER xxhash.h LIBRARY xxhash)
if(NOT TARGET Tarn::zstd)
  add_library(Tarn::zstd ALIAS zstd::libzstd_shared)
endif()
