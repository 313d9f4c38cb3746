# What `cmake --install` lays out, beside the headers and the schema, which their own folders name, and the command
# (FerroxCommandInstall). Components: runtime (the shared library), resources, development, command.
include(CMakePackageConfigHelpers)
set(FERROX_CMAKE_FOLDER "${CMAKE_INSTALL_LIBDIR}/cmake/Ferrox")

# Each kind in a file of its own: only the static library asks its user for the libraries that it is made with.
function(ferrox_install_library target kind)
  install(TARGETS ${target} EXPORT Ferrox_${kind}
          LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime
                  NAMELINK_COMPONENT development
          ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
  install(EXPORT Ferrox_${kind} NAMESPACE Ferrox:: FILE Ferrox_${kind}.cmake DESTINATION "${FERROX_CMAKE_FOLDER}"
          COMPONENT development)
endfunction()

ferrox_install_library(ferrox static)
if(FERROX_BUILD_SHARED)
  ferrox_install_library(ferrox_shared shared)
endif()

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/FerroxConfig.cmake.in" FerroxConfig.cmake
                              INSTALL_DESTINATION "${FERROX_CMAKE_FOLDER}" NO_SET_AND_CHECK_MACRO
                              NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# Before 1.0.0 an interface may change with every minor version.
write_basic_package_version_file(FerroxConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/FerroxConfig.cmake" "${CMAKE_CURRENT_BINARY_DIR}/FerroxConfigVersion.cmake"
        DESTINATION "${FERROX_CMAKE_FOLDER}" COMPONENT development)

# Relative to its own place, so that a prefix that was moved, or staged with DESTDIR, is still found.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
           OUTPUT_VARIABLE FERROX_PREFIX_OF_PC)
configure_file("${CMAKE_CURRENT_LIST_DIR}/ferrox.pc.in" ferrox.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/ferrox.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
        COMPONENT development)
