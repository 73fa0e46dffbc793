# Ends what is about to be packed. First the form that Debian asks for.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(usr ${CPACK_TEMPORARY_DIRECTORY}/usr)
  set(name ${CPACK_PACKAGE_NAME})

  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${usr}/share/doc/${name}/changelog
    "${name} (${CPACK_PACKAGE_VERSION}) stable; urgency=medium\n\n"
    "  * CHANGELOG.md says what is in this version.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
  file(GLOB texts ${usr}/share/man/man1/*.1 ${usr}/share/doc/${name}/changelog)
  execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
  file(RENAME ${usr}/share/zsh/site-functions ${usr}/share/zsh/vendor-completions)
  execute_process(COMMAND sed -i "1s|.*|#!/usr/bin/python3|" ${usr}/bin/make-package
    COMMAND_ERROR_IS_FATAL ANY)

  # The program runs /usr/sbin/lsof; Debian's package lsof has /usr/bin/lsof alone. The link is a
  # file of this package and not one that a postinst makes: dpkg knows whose it is, removes it with
  # the package, and refuses it, or the other, should lsof bring a file of that name. A diversion
  # would need that file, and an alternative a second program to choose from. For what dpkg does not
  # see there is the preinst.
  file(MAKE_DIRECTORY ${usr}/sbin)
  file(CREATE_LINK ../bin/lsof ${usr}/sbin/lsof SYMBOLIC)
  file(WRITE ${usr}/share/lintian/overrides/${name}
    "# The package lsof has the page of the program that this links to.\n"
    "${name}: no-manual-page [usr/sbin/lsof]\n")
endif()

# Nothing may depend on the umask of whoever makes the package.
file(GLOB_RECURSE entries LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(entry ${CPACK_TEMPORARY_DIRECTORY} ${entries})
  if(IS_DIRECTORY ${entry})
    file(CHMOD ${entry} PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
  elseif(NOT entry MATCHES "/s?bin/")
    file(CHMOD ${entry} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()
