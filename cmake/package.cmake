# The packages: `cpack` in the build folder of the package preset makes the Debian ones, the programs
# apart from what it takes to write others on the library; `cpack --config CPackSourceConfig.cmake`
# the sources.
set(CPACK_PACKAGE_NAME kx)
set(CPACK_PACKAGE_VENDOR "the kxsetup authors")
set(CPACK_PACKAGE_CONTACT "the kxsetup authors <kxsetup@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_stage.cmake)
set(CPACK_COMPONENTS_ALL programs development)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME kx)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SUGGESTS "libkx-dev, bash-completion, cc65")
set(CPACK_DEBIAN_PROGRAMS_DESCRIPTION
"kx works on disc images, and sends programs to a C-64 with a cartridge debug
stub, starts them and serves them files, over a serial line. kxsetup picks
the target, the colours and the character set. kx-init gives each user a
copy of the configuration files that come with them.")
# Linking libkx.a needs ncursesw's own development files; kx.pc and find_package need pkg-config.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkx-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libncurses-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS pkg-config)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "kx, g++, cmake")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_BREAKS "kx (<< 0.2)") # which had the library in it
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_REPLACES "kx (<< 0.2)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"This is the library that its programs kx and kxsetup are made of, static,
with its headers: INI configuration, the serial link to the debug stub,
program loaders, 1541 disc images, host fileservers, symbols, character sets
and a curses interface.")

set(CPACK_SOURCE_GENERATOR TXZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME kx-${PROJECT_VERSION})
# The folder may lie in another one of that name.
string(REGEX REPLACE "([][+.*()^$?|])" "\\\\\\1" source_folder ${PROJECT_SOURCE_DIR})
set(CPACK_SOURCE_IGNORE_FILES "^${source_folder}/build/" "/\\\\.git(/|$)" "/\\\\.cache/" CMakeUserPresets)
include(CPack)
