# What `cmake --install` installs, and how CPack makes packages of it.
include(GNUInstallDirs)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)  # an install does not need the tests
# tools/release sets the suffix, if the commit has no tag.
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION}${VERSION_SUFFIX})

install(TARGETS orvelline-installer orvelline-repair DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS tools/make-package DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(program orvelline-installer orvelline-repair make-package)
  configure_file(man/${program}.1 man/${program}.1 @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/man/${program}.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES completions/${program}.bash RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES completions/_${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endforeach()
# The documents keep their directories, because they link to each other. Files that an editor or
# Python leaves beside them are not installed.
install(FILES README.md ARCHITECTURE.md CHANGELOG.md CONTRIBUTING.md SECURITY.md copyright
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs fleet DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILES_MATCHING PATTERN "*.md" PATTERN "*.py" PATTERN "*.yml"
  PATTERN ".*" EXCLUDE PATTERN __pycache__ EXCLUDE)

set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VENDOR "Orvelline")
set(CPACK_PACKAGE_CONTACT "Orvelline release engineering <release@orvelline.invalid>")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_DESCRIPTION "Every file is verified before anything changes. What is replaced is kept
in a backup, and a run that fails rolls back.")
# The texts that a .pkg shows to the user. Without them, CPack shows its own.
configure_file(copyright copyright.txt COPYONLY)
configure_file(README.md README.txt COPYONLY)
file(CONFIGURE OUTPUT welcome.txt CONTENT "${CPACK_PACKAGE_DESCRIPTION}\n")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_CURRENT_BINARY_DIR}/copyright.txt)
set(CPACK_RESOURCE_FILE_README ${CMAKE_CURRENT_BINARY_DIR}/README.txt)
set(CPACK_RESOURCE_FILE_WELCOME ${CMAKE_CURRENT_BINARY_DIR}/welcome.txt)

if(APPLE)
  set(CPACK_GENERATOR productbuild)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr/local)
  set(CPACK_PRODUCTBUILD_IDENTIFIER orvelline.installer)
else()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/pack.cmake)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
  set(CPACK_DEBIAN_PACKAGE_SECTION sound)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "lsof, python3")
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS openssh-client)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/preinst
    ${CMAKE_CURRENT_LIST_DIR}/prerm ${CMAKE_CURRENT_LIST_DIR}/postrm)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
endif()
include(CPack)
