# Puts the last hand to what is about to be packed. First, no directory may depend on the umask of
# whoever makes the package.
file(GLOB_RECURSE entries LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(entry ${CPACK_TEMPORARY_DIRECTORY} ${entries})
  if(IS_DIRECTORY ${entry})
    file(CHMOD ${entry} PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
  endif()
endforeach()

# The rest is the form that Debian asks for.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(usr ${CPACK_TEMPORARY_DIRECTORY}/usr)

file(GLOB manuals ${usr}/share/man/man1/*.1)
execute_process(COMMAND gzip -9n ${manuals} COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${usr}/share/zsh/site-functions ${usr}/share/zsh/vendor-completions)

# The program runs /usr/sbin/lsof; Debian's package lsof has /usr/bin/lsof alone. The link is a file
# of this package and not one that a postinst makes: dpkg knows whose it is, removes it with the
# package, and refuses it, or the other, should lsof bring a file of that name. A diversion would
# need that file, and an alternative a second program to choose from. For the one case that dpkg
# can't see, /usr/sbin and /usr/bin as one directory, there is the preinst.
file(MAKE_DIRECTORY ${usr}/sbin)
file(CHMOD ${usr}/sbin PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
file(CREATE_LINK ../bin/lsof ${usr}/sbin/lsof SYMBOLIC)
