# What `cmake --install` puts where, in two components: `programs` and `development`. Nothing
# installed names the prefix, so that an installed tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The command in bin/ is a script that finds the user's base directory; it looks for the program
# beside the folder that it lies in itself, not in CMAKE_INSTALL_LIBEXECDIR, which may be anywhere.
# The same holds for kx-init and the base directory.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME programs)
install(TARGETS kxsetup DESTINATION libexec/kx)
install(TARGETS kx_command)
install(PROGRAMS script/kxsetup script/kx-init DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY base/ DESTINATION share/kx PATTERN README.md EXCLUDE)
install(DIRECTORY script/completions/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY script/completions/fish/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
# Debian's zsh looks there for packages, and in site-functions only below /usr/local.
set(zsh_folder site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  set(zsh_folder vendor-completions)
endif()
install(DIRECTORY script/completions/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder})

file(GLOB man_pages CONFIGURE_DEPENDS doc/man/*.[1-9])
foreach(page ${man_pages})
  string(REGEX MATCH "[1-9]$" chapter ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${chapter})
endforeach()
install(FILES README.md CHANGELOG.md CONTRIBUTING.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY doc DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN *.md PATTERN man EXCLUDE)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS kx EXPORT kxTargets
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kx)

# find_package(kx) gives kx::kx.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kx)
install(EXPORT kxTargets NAMESPACE kx:: DESTINATION ${package_dir})
configure_package_config_file(cmake/kxConfig.cmake.in ${PROJECT_BINARY_DIR}/kxConfig.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# A 0.x release promises nothing to programs written for another one.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kxConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kxConfig.cmake ${PROJECT_BINARY_DIR}/kxConfigVersion.cmake
  DESTINATION ${package_dir})

# pkg-config finds the tree from where kx.pc lies, however deep the library folder is.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
configure_file(cmake/kx.pc.in ${PROJECT_BINARY_DIR}/kx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

add_custom_target(uninstall VERBATIM
  COMMAND ${CMAKE_COMMAND} -D manifest=${PROJECT_BINARY_DIR}/install_manifest.txt
          -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
