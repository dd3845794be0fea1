# What `cmake --install` lays down: the shared libraries, their headers, the command and a package for find_package.
include_guard()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The headers of the calling folder and those below, at the paths at which they are included. What stands in a folder
# `detail` is nobody else's business.
function(tarn_install_headers)
  file(RELATIVE_PATH folder "${CMAKE_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
  install(DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/${folder}"
    FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE)
endfunction()

function(tarn_install_floor floor)
  install(TARGETS ${floor} EXPORT TarnwickTargets LIBRARY)
  tarn_install_headers()
  set_property(GLOBAL PROPERTY TARN_INSTALLED_ANY ON)
endfunction()

# Called once, after every floor. Users write find_package(Tarnwick) and link Tarnwick::Tarnwick.
function(tarn_install_package)
  get_property(any GLOBAL PROPERTY TARN_INSTALLED_ANY)
  if(NOT any)
    return()
  endif()
  set(folder "${CMAKE_INSTALL_LIBDIR}/cmake/Tarnwick")
  install(EXPORT TarnwickTargets NAMESPACE Tarnwick:: DESTINATION "${folder}")
  configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/TarnwickConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/TarnwickConfig.cmake" INSTALL_DESTINATION "${folder}")
  write_basic_package_version_file("${CMAKE_BINARY_DIR}/TarnwickConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
  install(FILES "${CMAKE_BINARY_DIR}/TarnwickConfig.cmake" "${CMAKE_BINARY_DIR}/TarnwickConfigVersion.cmake"
    DESTINATION "${folder}")
endfunction()
