# The words in which the folders describe themselves.
#
#   tarn_add_folders(<dir>...)     adds each folder that has a CMakeLists.txt
#   tarn_room(<name> ...)          one folder's sources: an object library that belongs to a floor
#   tarn_floor(<floor> ...)        a library made of its rooms, and its twin for white-box tests
#   tarn_command(<target> ...)     a command in bin/, installed
#   tarn_test(<name> ...)          a GoogleTest program in tests/, registered with CTest
#   tarn_bench(<name> ...)         a Google Benchmark program in bench/
#   tarn_fuzz(<name> ...)          a libFuzzer program in fuzz/; without that engine it replays its seeds
#
# A floor appears twice: the shared library <floor> that users link, with nothing visible but what its headers export,
# and the archive <floor>_internal, made of the same objects, that tests link to see everything. A program that linked
# both would hold every class and every piece of process-wide state twice; CMake refuses that when it generates.
include_guard()
include(GoogleTest)
include(TarnInstall)

function(tarn_add_folders)
  foreach(folder IN LISTS ARGN)
    # CONFIGURE_DEPENDS: a folder that appears later is found by the next build.
    file(GLOB found CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt")
    if(found)
      add_subdirectory("${folder}")
    endif()
  endforeach()
endfunction()

# Ends the configuration when a call had words that its function does not know.
macro(tarn_refuse_unknown_arguments function name)
  if(ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "${function}(${name}): unknown arguments: ${ARG_UNPARSED_ARGUMENTS}")
  endif()
endmacro()

# Remembers what a target asked to link, so that tarn_check_links can name a library that nobody made.
function(tarn_remember_links target)
  foreach(library IN LISTS ARGN)
    set_property(GLOBAL APPEND PROPERTY TARN_LINKS "${target}|${library}")
  endforeach()
endfunction()

# Called once, after every folder: a plain name must be a target (else the linker would look for -l<name> much later).
function(tarn_check_links)
  get_property(links GLOBAL PROPERTY TARN_LINKS)
  foreach(link IN LISTS links)
    string(REPLACE "|" ";" pair "${link}")
    list(GET pair 0 target)
    list(GET pair 1 library)
    if(NOT TARGET "${library}" AND NOT library MATCHES "^-")
      message(FATAL_ERROR "${target} links ${library}, but no such library exists")
    endif()
  endforeach()
endfunction()

# tarn_room(<name> FLOOR <floor> SOURCES a.cpp... [HEADERS a.h...] [LINK lib...] [PUBLIC lib...])
# LINK and PUBLIC are for third-party libraries only: the rooms of a floor and the floors below are linked by the floor.
# PUBLIC is for the few whose headers our own headers include; every user of the floor gets those. HEADERS shows headers
# in an IDE; all are installed, listed or not.
function(tarn_room name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "FLOOR" "SOURCES;HEADERS;LINK;PUBLIC")
  tarn_refuse_unknown_arguments(tarn_room ${name})
  add_library(${name} OBJECT ${ARG_SOURCES} ${ARG_HEADERS})
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PUBLIC ${ARG_LINK} ${ARG_PUBLIC} Threads::Threads)
  tarn_remember_links(${name} ${ARG_LINK} ${ARG_PUBLIC})
  set_property(GLOBAL APPEND PROPERTY TARN_ROOMS_${ARG_FLOOR} ${name})
  set_property(GLOBAL APPEND PROPERTY TARN_LINK_${ARG_FLOOR} ${ARG_LINK})
  set_property(GLOBAL APPEND PROPERTY TARN_PUBLIC_${ARG_FLOOR} ${ARG_PUBLIC})
endfunction()

# One of a floor's two libraries. `linkage` is "shared" or "internal"; CMake compares it over everything a program links.
function(tarn_floor_library target linkage kind)
  cmake_parse_arguments(PARSE_ARGV 3 ARG "" "" "ROOMS;PUBLIC;LINK")
  add_library(${target} ${kind})
  foreach(room IN LISTS ARG_ROOMS)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${room}>)
  endforeach()
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
  target_compile_features(${target} PUBLIC cxx_std_20)
  # A shared library keeps its third parties to itself; an archive passes them on to the program.
  set(reach PUBLIC)
  if(kind STREQUAL "SHARED")
    set(reach PRIVATE)
  endif()
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} Threads::Threads ${reach} ${ARG_LINK})
  tarn_remember_links(${target} ${ARG_LINK})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX INTERFACE_TARN_LINKAGE ${linkage})
  set_property(TARGET ${target} APPEND PROPERTY COMPATIBLE_INTERFACE_STRING TARN_LINKAGE)
endfunction()

# tarn_floor(<floor> OUTPUT <Name> [STATIC] [PUBLIC lower floors...] [LINK third party...])
# Call it after the rooms. A floor without rooms yet makes no library, and a floor above it leaves it out. STATIC is for
# the floors above libTarnwick, which nobody loads as a library: <floor> is then an archive over the shared lower floors.
function(tarn_floor floor)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "STATIC" "OUTPUT" "PUBLIC;LINK")
  tarn_refuse_unknown_arguments(tarn_floor ${floor})
  get_property(rooms GLOBAL PROPERTY TARN_ROOMS_${floor})
  if(NOT rooms)
    return()
  endif()
  get_property(link GLOBAL PROPERTY TARN_LINK_${floor})
  get_property(public GLOBAL PROPERTY TARN_PUBLIC_${floor})
  list(APPEND link ${ARG_LINK})
  list(REMOVE_DUPLICATES link)
  list(REMOVE_DUPLICATES public)
  set(lower)
  set(lower_internal)
  foreach(below IN LISTS ARG_PUBLIC)
    if(TARGET ${below})
      list(APPEND lower ${below})
      list(APPEND lower_internal ${below}_internal)
    endif()
  endforeach()

  set(kind SHARED)
  if(ARG_STATIC)
    set(kind STATIC)
  endif()
  tarn_floor_library(${floor} shared ${kind} ROOMS ${rooms} PUBLIC ${lower} ${public} LINK ${link})
  tarn_floor_library(${floor}_internal internal STATIC ROOMS ${rooms} PUBLIC ${lower_internal} ${public} LINK ${link})
  add_library(Tarnwick::${ARG_OUTPUT} ALIAS ${floor})
  set_target_properties(${floor} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT} EXPORT_NAME ${ARG_OUTPUT})
  if(NOT ARG_STATIC)
    set_target_properties(${floor} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    # What comes out of a static third-party archive stays hidden, too.
    target_link_options(${floor} PRIVATE -Wl,-z,relro,-z,now -Wl,--exclude-libs,ALL)
    if(NOT TARN_SANITIZER)
      target_link_options(${floor} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
  if(NOT ARG_STATIC)
    tarn_install_floor(${floor})
  endif()
endfunction()

# tarn_command(<target> OUTPUT <name> SOURCES main.cpp... [LINK lib...])
function(tarn_command target)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "OUTPUT" "SOURCES;LINK")
  tarn_refuse_unknown_arguments(tarn_command ${target})
  add_executable(${target} ${ARG_SOURCES})
  target_include_directories(${target} PRIVATE "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${target} PRIVATE ${ARG_LINK})
  tarn_remember_links(${target} ${ARG_LINK})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${ARG_OUTPUT})
  install(TARGETS ${target} RUNTIME)
endfunction()

# Every test program shares one precompiled header: GoogleTest, gmock and the standard headers that tests lean on. It is
# compiled as programs are (-fPIE), since the compiler refuses one made for a library.
function(tarn_make_test_prefix)
  set(source "${CMAKE_BINARY_DIR}/tarn_test_prefix.cpp")
  file(CONFIGURE OUTPUT "${source}" CONTENT "// Holds the precompiled header of the tests.\n")
  add_library(tarn_test_prefix OBJECT EXCLUDE_FROM_ALL "${source}")
  set_target_properties(tarn_test_prefix PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(tarn_test_prefix PRIVATE -fPIE)
  target_link_libraries(tarn_test_prefix PRIVATE GTest::gmock Threads::Threads)
  target_precompile_headers(tarn_test_prefix PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <chrono> <cstdint> <functional> <memory> <span> <string>
    <string_view> <thread> <vector>)
endfunction()

# tarn_test(<name> SOURCES x_test.cpp... [LINK lib...] [LABELS label...] [TIMEOUT seconds] [SERIAL])
# LINK takes the twins (<floor>_internal) or the shared floors. Everything in tests/support is there without asking.
# TIMEOUT ends a test that hangs; it is far above what any takes, since a busy machine may take many times as long.
function(tarn_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "SERIAL" "TIMEOUT" "SOURCES;LINK;LABELS")
  tarn_refuse_unknown_arguments(tarn_test ${name})
  if(NOT ARG_LABELS)
    set(ARG_LABELS quick)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 600)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}")
  # Before the floors: the archive of helpers uses them, and the linker reads archives from left to right.
  target_link_libraries(${name} PRIVATE $<TARGET_NAME_IF_EXISTS:tarn_test_support> ${ARG_LINK} GTest::gmock_main)
  target_precompile_headers(${name} REUSE_FROM tarn_test_prefix)
  tarn_remember_links(${name} ${ARG_LINK})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
  set(properties TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
  if(ARG_SERIAL)
    list(APPEND properties RUN_SERIAL ON)
  endif()
  gtest_discover_tests(${name} TEST_PREFIX "${name}:" DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 600
    WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}" PROPERTIES ${properties})
endfunction()

# tarn_bench(<name> SOURCES x_bench.cpp... [LINK lib...])
function(tarn_bench name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK")
  tarn_refuse_unknown_arguments(tarn_bench ${name})
  if(NOT TARGET benchmark::benchmark_main)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${ARG_LINK} benchmark::benchmark_main)
  tarn_remember_links(${name} ${ARG_LINK})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bench")
endfunction()

# tarn_fuzz(<name> SOURCES x_fuzz.cpp... LINK lib... SEEDS folder)
# With the preset fuzz the test of the same name is a short run from the seeds; longer ones start build/fuzz/fuzz/<name>
# by hand. Every other build gives the seeds to the target once.
function(tarn_fuzz name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "SEEDS" "SOURCES;LINK")
  tarn_refuse_unknown_arguments(tarn_fuzz ${name})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${ARG_LINK})
  tarn_remember_links(${name} ${ARG_LINK})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz")
  set(seeds "${CMAKE_CURRENT_SOURCE_DIR}/${ARG_SEEDS}")
  if(NOT TARN_FUZZ)
    target_link_libraries(${name} PRIVATE fuzz_replay)
    add_test(NAME "fuzz_seeds:${name}" COMMAND ${name} "${seeds}")
    set_tests_properties("fuzz_seeds:${name}" PROPERTIES LABELS quick TIMEOUT 600)
    return()
  endif()
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set(corpus "${CMAKE_BINARY_DIR}/fuzz/${name}.corpus")
  file(MAKE_DIRECTORY "${corpus}")
  # New inputs go to the first folder, so the seeds in the tree stay as they are.
  add_test(NAME "fuzz:${name}" COMMAND ${name} -runs=20000 -max_total_time=30 -timeout=10 "${corpus}" "${seeds}")
  set_tests_properties("fuzz:${name}" PROPERTIES LABELS fuzz TIMEOUT 120)
endfunction()
