# Finishes the files of a package before CPack packs them. For a .deb, first in Debian's form.
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

  # The program runs /usr/sbin/lsof; Debian's package lsof has /usr/bin/lsof only. The link is a file
  # of this package, not made by a postinst: so dpkg removes it with the package, and refuses a
  # package lsof that has a file of this name. A diversion would need that file, and an alternative
  # a second program. preinst, prerm and postrm spare a file there that dpkg does not know.
  file(MAKE_DIRECTORY ${usr}/sbin)
  file(CREATE_LINK ../bin/lsof ${usr}/sbin/lsof SYMBOLIC)
  file(WRITE ${usr}/share/lintian/overrides/${name}
    "# The package lsof has the page of the program that this links to.\n"
    "${name}: no-manual-page [usr/sbin/lsof]\n")
endif()

# No permission may depend on the umask of the user who makes the package.
file(GLOB_RECURSE entries LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(entry ${CPACK_TEMPORARY_DIRECTORY} ${entries})
  if(IS_DIRECTORY ${entry})
    file(CHMOD ${entry} PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
  elseif(NOT entry MATCHES "/s?bin/")
    file(CHMOD ${entry} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()
