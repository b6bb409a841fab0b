# The Debian package of the Python client. No other installation has it: there it is pip's business.
set(client ${PROJECT_SOURCE_DIR}/Clients/Python)
set(python_component COMPONENT python EXCLUDE_FROM_ALL)
set(python_docs ${CMAKE_INSTALL_DATADIR}/doc/python3-tervain)

install(DIRECTORY ${client}/tervain DESTINATION lib/python3/dist-packages ${python_component}
  PATTERN __pycache__ EXCLUDE)
# As pip would write it, so that Python's own tools know the package.
file(CONFIGURE OUTPUT METADATA CONTENT
"Metadata-Version: 2.1
Name: tervain
Version: @PROJECT_VERSION@
Summary: See and use the desktop of a virtual machine from its host
Requires-Python: >=3.10
")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/METADATA ${python_component}
  DESTINATION lib/python3/dist-packages/tervain-${PROJECT_VERSION}.dist-info)
install(DIRECTORY ${client}/examples DESTINATION ${python_docs} ${python_component}
  PATTERN __pycache__ EXCLUDE)
install(FILES Linux/copyright ${PROJECT_SOURCE_DIR}/docs/python.md
  ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz DESTINATION ${python_docs} ${python_component})

# From here on there are two packages; what CPACK_DEBIAN_PACKAGE_* say above is the agent's.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified python)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME ${CPACK_PACKAGE_NAME})
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tervain)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SOURCE ${CPACK_PACKAGE_NAME})
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any (>= 3.10)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pytest")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/Linux/python/postinst ${CMAKE_CURRENT_SOURCE_DIR}/Linux/python/prerm)
# One summary would be put before both descriptions, so each brings its own.
string(PREPEND CPACK_DEBIAN_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION_SUMMARY}\n")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION
"Python module that sees and uses a guest's desktop
A host's programs reach the agent of a virtual machine with this module: they
read the elements of applications and act on them, type and click, take
pictures, and run commands with their input and output.")
