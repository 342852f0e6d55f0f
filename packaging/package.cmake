# What is installed where, and the packages that are made of it. Neither the installer nor its page
# bears the name of the system's own install.

set(CMAKE_INSTALL_DOCDIR share/doc/product-install CACHE PATH "Documents of the program")
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(GNUInstallDirs)

# --- Files -----------------------------------------------------------------------------------

install(PROGRAMS $<TARGET_FILE:installer> DESTINATION ${CMAKE_INSTALL_BINDIR}
  RENAME product-install)
if(TARGET kit)
  install(TARGETS kit DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
foreach(section 1 5)
  file(GLOB pages CONFIGURE_DEPENDS man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

install(FILES packaging/README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
file(GLOB pages CONFIGURE_DEPENDS docs/*.md)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
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
The program is static, so that it starts on any Linux to which a product is
brought. A second one, product-kit, helps the product's author and whoever
installs it. The headers and the static library of its modules are included.")

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
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
