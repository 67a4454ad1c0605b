# Run by CPack on the staged tree, for what Debian wants otherwise than a plain installation has it:
# the licence in a file called copyright, manual pages and change log compressed without the date of
# the packaging, and folders that everybody can enter whatever the packager's umask.
set(doc ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/doc/kx)
file(RENAME ${doc}/LICENSE ${doc}/copyright)
file(RENAME ${doc}/CHANGELOG.md ${doc}/changelog)
file(GLOB pages ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/man/man[1-9]/*)
execute_process(COMMAND gzip -9n ${doc}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -type d -exec chmod 755 {} +
  COMMAND_ERROR_IS_FATAL ANY)
