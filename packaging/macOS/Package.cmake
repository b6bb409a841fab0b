# A tree to unpack on a Mac, with the script that signs and installs it. Stripping would break the
# signature that the linker has made, without which nothing runs on Apple silicon.

set(support ${CMAKE_INSTALL_DATADIR}/${CPACK_PACKAGE_NAME})
install(PROGRAMS macOS/install DESTINATION ${support})
install(FILES macOS/com.tervain.vmagent.plist macOS/com.tervain.vmagent.approvals.plist
  macOS/privacy.mobileconfig macOS/entitlements.plist DESTINATION ${support})
install(FILES ${described}/tervainctl.1 man/tervain-ssh.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES man/TervainVMAgent.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${described}/_tervainctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES ${PROJECT_SOURCE_DIR}/docs/provisioning-macos.md DESTINATION ${docs})

set(CPACK_GENERATOR TGZ)
set(CPACK_STRIP_FILES OFF)
