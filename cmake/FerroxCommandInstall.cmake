# The command, and what goes along with it: man page, completions of the shells, the user's service unit.

# Where zsh looks for what packages bring differs: Debian keeps its own place for them below /usr.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
  set(FERROX_ZSH_DIR_DEFAULT "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
else()
  set(FERROX_ZSH_DIR_DEFAULT "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
endif()
set(FERROX_ZSH_DIR "${FERROX_ZSH_DIR_DEFAULT}" CACHE STRING "Where the completions for zsh go")
# Not below CMAKE_INSTALL_LIBDIR, which may be that of one architecture.
set(FERROX_SYSTEMD_USER_DIR lib/systemd/user CACHE STRING "Where units for users' service managers go")

configure_file("${PROJECT_SOURCE_DIR}/packaging/systemd/ferrox.service.in" packaging/ferrox.service @ONLY)
set(FERROX_COMPLETIONS "${PROJECT_SOURCE_DIR}/Resources/completions")

install(TARGETS ferrox_executable RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT command)
# A package brings it compressed (FerroxPackages).
if(NOT FERROX_PACKAGES)
  install(FILES "${PROJECT_SOURCE_DIR}/docs/ferrox.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT command)
endif()
install(FILES "${FERROX_COMPLETIONS}/ferrox.bash" RENAME ferrox
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT command)
install(FILES "${FERROX_COMPLETIONS}/_ferrox" DESTINATION "${FERROX_ZSH_DIR}" COMPONENT command)
install(FILES "${FERROX_COMPLETIONS}/ferrox.fish"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT command)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/packaging/ferrox.service" DESTINATION "${FERROX_SYSTEMD_USER_DIR}"
        COMPONENT command)
