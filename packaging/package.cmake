# What is installed where, and the packages that are made of it. Neither the program nor its page
# bears the name of the system's own install.

set(CMAKE_INSTALL_DOCDIR share/doc/product-install CACHE PATH "Documents of the program")
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(GNUInstallDirs)

# --- Files -----------------------------------------------------------------------------------

install(PROGRAMS $<TARGET_FILE:installer> DESTINATION ${CMAKE_INSTALL_BINDIR}
  RENAME product-install)
install(FILES man/product-install.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES
  man/product-install-copy.5
  man/product-install-data.5
  man/product-install-init.5
  man/product-install-question.5
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)

install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
file(GLOB pages CONFIGURE_DEPENDS docs/*.md)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY examples/guestbook examples/starter DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY editors/vim/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vim/vimfiles)

# For programs that build on the modules: find_package(product-install) gives the target
# product-install::modules.
install(TARGETS installer_modules EXPORT product-install
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET headers DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/product-install)
install(EXPORT product-install FILE product-install-config.cmake NAMESPACE product-install::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/product-install)

# --- Packages --------------------------------------------------------------------------------

set(CPACK_PACKAGE_NAME product-install)
set(CPACK_PACKAGE_VENDOR "The installer's maintainers")
set(CPACK_PACKAGE_CONTACT "The installer's maintainers <maintainers@product-install.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "data-driven installer for web products")
set(CPACK_PACKAGE_DESCRIPTION
  "A product ships this program with four text files: its settings, what to find
out about the host, what to ask, and what to do to the disk. The program then
installs, upgrades or removes the product, in a dialogue or unattended.
.
The headers and the static library of its modules are included.")

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# The generator External makes the tarball; TGZ would pack the files in any order.
string(TOLOWER ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR} machine)
set(CPACK_PACKAGE_FILE_NAME product-install-${PROJECT_VERSION}-${machine})
if(INSTALLER_STATIC)
  string(APPEND CPACK_PACKAGE_FILE_NAME -static)
endif()
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_SOURCE_DIR}/packaging/tarball.cmake)
set(CPACK_EXTERNAL_ENABLE_STAGING ON)

include(CPack)
