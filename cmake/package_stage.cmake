# Run by CPack on the staged packages, for what Debian wants otherwise than a plain installation has
# it: the licence in a file called copyright, manual pages and change log compressed without the date
# of the packaging, a change log of the packaging as well, what lintian is to put up with, and
# folders that everybody can enter whatever the packager's umask.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return() # the sources
endif()
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(doc ${root}/programs/usr/share/doc)
file(RENAME ${doc}/kx/LICENSE ${doc}/kx/copyright)
file(RENAME ${doc}/kx/CHANGELOG.md ${doc}/kx/changelog)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/kx/changelog.Debian "kx (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=low

  * A release; its changes are in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}

kx (0.1-1) unstable; urgency=low

  * The first packages.

 -- ${CPACK_PACKAGE_CONTACT}  Mon, 02 Nov 2026 12:00:00 +0000
")
file(GLOB pages ${root}/programs/usr/share/man/man[1-9]/*)
execute_process(COMMAND gzip -9n ${doc}/kx/changelog ${doc}/kx/changelog.Debian ${pages} COMMAND_ERROR_IS_FATAL ANY)
set(overrides ${root}/programs/usr/share/lintian/overrides)
file(MAKE_DIRECTORY ${overrides})
file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${overrides}/kx)
set(other_doc ${root}/development/usr/share/doc/libkx-dev)
file(COPY ${doc}/kx/copyright ${doc}/kx/changelog.gz ${doc}/kx/changelog.Debian.gz
  DESTINATION ${other_doc})
execute_process(COMMAND find ${root} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
