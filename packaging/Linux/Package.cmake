# The Debian package.

# Installs a file, compressed.
function(install_compressed file destination)
  get_filename_component(name ${file} NAME)
  set(packed ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${packed} DEPENDS ${file} VERBATIM
    COMMAND gzip --best --no-name --stdout ${file} > ${packed})
  add_custom_target(Compressed-${name} ALL DEPENDS ${packed})
  install(FILES ${packed} DESTINATION ${destination})
endfunction()

install_compressed(${described}/tervainctl.1 ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${described}/_tervainctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install_compressed(${CMAKE_CURRENT_SOURCE_DIR}/man/tervain-ssh.1 ${CMAKE_INSTALL_MANDIR}/man1)
install_compressed(${CMAKE_CURRENT_SOURCE_DIR}/man/TervainVMAgent.8 ${CMAKE_INSTALL_MANDIR}/man8)
install_compressed(${CMAKE_CURRENT_SOURCE_DIR}/Linux/changelog ${docs})
file(CREATE_LINK TervainVMAgent.8.gz ${CMAKE_CURRENT_BINARY_DIR}/tervain-open.8.gz SYMBOLIC)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tervain-open.8.gz
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES Linux/tervain-vm-agent.service Linux/tervain-vm-agent.socket
  DESTINATION lib/systemd/user)
# Only the system's own prefix has its settings there; other installations leave /etc alone.
install(CODE "if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  file(INSTALL ${CMAKE_CURRENT_SOURCE_DIR}/Linux/96tervain-vm-agent DESTINATION /etc/X11/Xsession.d)
endif()")
install(FILES Linux/lintian-overrides RENAME ${CPACK_PACKAGE_NAME}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)
install(FILES Linux/copyright ${PROJECT_SOURCE_DIR}/docs/linux.md DESTINATION ${docs})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The accessibility bus, and the session bus that it is found by.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "at-spi2-core, default-dbus-session-bus | dbus-session-bus")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "xserver-xorg, zsh")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"The agent runs in the session of a virtual machine's user and listens on an
AF_VSOCK port. Through it the host reads the elements of applications, clicks
and types, takes pictures of the screen, launches applications and runs
commands. tervainctl is the host's side of it.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/Linux/conffiles)
include(Linux/PythonPackage.cmake)
