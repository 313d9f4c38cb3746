# The Debian packages: libferrox1, libferrox-dev and ferrox, one of each component of that kind. scripts/package makes
# them in a tree of their own, since they are laid out below /usr and their command uses the shared library.
# The schema of queries stays out of libferrox1: the library has it inside, and a file without the version of the
# binary interface in its path would keep a later libferrox from being installed beside this one.

if(NOT (FERROX_BUILD_APPS AND FERROX_BUILD_SHARED) OR FERROX_BUILD_TESTS)
  message(FATAL_ERROR "FERROX_PACKAGES needs the command and the shared library, and that tests, which link the "
                      "command with the static one, are made in another tree: take the preset \"package\".")
endif()

set(FERROX_PACKAGE_MAINTAINER "The Ferrox authors <ferrox@ferrox.invalid>" CACHE STRING "Who answers for the packages")
set(FERROX_PACKAGE_REVISION 1 CACHE STRING "How often this version has been packaged")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_DEBIAN_PACKAGE_RELEASE "${FERROX_PACKAGE_REVISION}")
set(FERROX_PACKAGE_VERSION "${PROJECT_VERSION}-${FERROX_PACKAGE_REVISION}")
get_target_property(FERROX_BINARY_INTERFACE ferrox_shared SOVERSION)
set(FERROX_PACKAGE_runtime "libferrox${FERROX_BINARY_INTERFACE}")
set(FERROX_PACKAGE_development libferrox-dev)
set(FERROX_PACKAGE_command ferrox)

# As Debian links: tables of addresses are written once and then never, and no library is needed for nothing.
foreach(target ferrox_shared ferrox_executable)
  target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now LINKER:--as-needed)
endforeach()

# What Debian wants beside the program: copyright and changes, and the man page compressed.
set(documents "${CMAKE_CURRENT_BINARY_DIR}/packaging/documents")
set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
set(writer "${PROJECT_SOURCE_DIR}/scripts/lib/debian_documents.py")
set(read "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/docs/ferrox.1")
add_custom_command(OUTPUT "${documents}/copyright" "${documents}/changelog.Debian.gz" "${documents}/ferrox.1.gz"
                   COMMAND /usr/bin/python3 "${writer}" "${FERROX_PACKAGE_VERSION}" "${FERROX_PACKAGE_MAINTAINER}"
                           "${documents}" ${read}
                   DEPENDS "${writer}" ${read} VERBATIM)
add_custom_target(ferrox_package_contents DEPENDS "${documents}/copyright")
add_dependencies(ferrox_package_contents ferrox ferrox_shared ferrox_executable)

foreach(component runtime development command)
  install(FILES "${documents}/copyright" "${documents}/changelog.Debian.gz" COMPONENT ${component}
          DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${FERROX_PACKAGE_${component}}")
  install(FILES "${debian}/lintian-overrides.${component}" RENAME "${FERROX_PACKAGE_${component}}"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT ${component})
endforeach()
install(FILES "${documents}/ferrox.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT command)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Examples/" COMPONENT development
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${FERROX_PACKAGE_development}/examples"
        PATTERN CMakeLists.txt EXCLUDE PATTERN __pycache__ EXCLUDE)
install(FILES "${PROJECT_SOURCE_DIR}/Resources/GraphQL.bundle/Schema.graphql" COMPONENT development
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${FERROX_PACKAGE_development}")

# The packages of the libraries that a program with the static library links: ferrox.pc names these, and the compiler
# says which file is meant.
set(FERROX_STATIC_NEEDS pkg-config)
file(STRINGS "${CMAKE_CURRENT_BINARY_DIR}/ferrox.pc" private REGEX "^Libs.private:")
string(REGEX MATCHALL "-l[^ ]+" private "${private}")
foreach(library IN LISTS private)
  string(REGEX REPLACE "^-l" "" library "${library}")
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=lib${library}.so" OUTPUT_VARIABLE file
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  cmake_path(NORMAL_PATH file)
  execute_process(COMMAND dpkg-query --search "${file}" OUTPUT_VARIABLE owner COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE ":.*" "" owner "${owner}")
  list(APPEND FERROX_STATIC_NEEDS "${owner}")
endforeach()
list(REMOVE_DUPLICATES FERROX_STATIC_NEEDS)
list(JOIN FERROX_STATIC_NEEDS ", " FERROX_STATIC_NEEDS)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development command)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
# Whatever the umask of who builds.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_THREADS 0)

# Each has a first line of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE ferrox)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${FERROX_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

# What all three begin with.
set(FERROX_PACKAGE_SUMMARY "Ferrox lets the instances of a desktop application on one local network find
each other, without a server and without anybody typing an address, and work
together: notifications, live streams, shared project folders.")
foreach(component RUNTIME DEVELOPMENT COMMAND)
  string(TOLOWER ${component} name)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME "${FERROX_PACKAGE_${name}}")
endforeach()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# What other packages depend on whose programs use the library.
set(shlibs "${CMAKE_CURRENT_BINARY_DIR}/packaging/shlibs")
file(WRITE "${shlibs}" "libferrox ${FERROX_BINARY_INTERFACE} ${FERROX_PACKAGE_runtime} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${shlibs}" "${debian}/triggers")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "applications on one network work together - shared library
${FERROX_PACKAGE_SUMMARY}
.
This is the library that such applications are run with.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${FERROX_PACKAGE_runtime} (= ${FERROX_PACKAGE_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "${FERROX_STATIC_NEEDS}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "applications on one network work together - development files
${FERROX_PACKAGE_SUMMARY}
.
These are the headers, the static library, and what CMake and pkg-config need
to find both kinds of the library; and examples. Only programs that are linked
with the static library need what is recommended.")

set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION net)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "${FERROX_PACKAGE_runtime} (= ${FERROX_PACKAGE_VERSION})")
set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS avahi-daemon)
set(CPACK_DEBIAN_COMMAND_DESCRIPTION "applications on one network work together - command
${FERROX_PACKAGE_SUMMARY}
.
The command is a node by itself, for people, for scripts, and for applications
in other languages; it tells who is there, copies what others share, and finds
out what keeps nodes from meeting. With it come its man page, completions for
bash, zsh and fish, and a unit for the user's service manager, which nobody
starts unasked.")

include(CPack)
