# Changes the files of a package before CPack packs them: a .deb follows Debian's rules, and the
# permissions are always the same.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(usr ${CPACK_TEMPORARY_DIRECTORY}/usr)
  set(name ${CPACK_PACKAGE_NAME})

  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${usr}/share/doc/${name}/changelog
    "${name} (${CPACK_PACKAGE_VERSION}) stable; urgency=medium\n\n"
    "  * CHANGELOG.md lists the changes.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
  file(GLOB texts ${usr}/share/man/man1/*.1 ${usr}/share/doc/${name}/changelog)
  execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
  file(RENAME ${usr}/share/zsh/site-functions ${usr}/share/zsh/vendor-completions)
  execute_process(COMMAND sed -i "1s|.*|#!/usr/bin/python3|" ${usr}/bin/make-package
    COMMAND_ERROR_IS_FATAL ANY)

  # The tool runs /usr/sbin/lsof, but Debian's package lsof has /usr/bin/lsof only. The link is a
  # file of this package and not made by a postinst, so dpkg removes it with the package, and
  # refuses another package with a file of this name. A diversion would need such a file, and an
  # alternative a second program. preinst, prerm and postrm preserve a file that dpkg does not know.
  file(MAKE_DIRECTORY ${usr}/sbin)
  file(CREATE_LINK ../bin/lsof ${usr}/sbin/lsof SYMBOLIC)
  file(WRITE ${usr}/share/lintian/overrides/${name}
    "# This is a link to the program of the package lsof, which has its manual page.\n"
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
