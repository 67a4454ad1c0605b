# The Debian package: `cpack -G DEB` in the build directory. One package for program and library:
# who sets the toolkit up writes programs.
set(CPACK_PACKAGE_NAME kx)
set(CPACK_PACKAGE_VENDOR "the kxsetup authors")
set(CPACK_PACKAGE_CONTACT "the kxsetup authors <kxsetup@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DESCRIPTION
"kxsetup picks the target, the colours and the character set that the
programs of a cross-development and remote-debugging toolkit use, and writes
their configuration: for the C-64 with a cartridge debug stub, the NES, the
PC-Engine.
.
With it come the toolkit's common library libkx (static, with its headers), a
base directory of configuration files, and kx-init, which gives each user a
copy of that directory.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_stage.cmake)

set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Linking libkx.a needs ncursesw's own development files; kx.pc and find_package need pkg-config.
set(CPACK_DEBIAN_PACKAGE_DEPENDS libncurses-dev)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pkg-config)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++, cmake")
include(CPack)
