# Runs on the laid-out files of the Debian package before it is closed: adds what Debian asks for,
# and gives every file the time of the release, so that the same sources make the same package.

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  message(FATAL_ERROR "SOURCE_DATE_EPOCH must be set")
endif()

set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})
# Products take the programs along, to machines with other and older C libraries.
file(GLOB programs RELATIVE ${CPACK_TEMPORARY_DIRECTORY} ${CPACK_TEMPORARY_DIRECTORY}/usr/bin/*)
foreach(program IN LISTS programs)
  file(APPEND ${share}/lintian/overrides/${CPACK_PACKAGE_NAME}
    "${CPACK_PACKAGE_NAME}: statically-linked-binary [${program}]\n")
endforeach()
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${documents}/changelog
"${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}: see CHANGELOG.md.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
file(GLOB pages ${share}/man/man*/*)
execute_process(COMMAND gzip -9n ${pages} ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE binaries ${CPACK_TEMPORARY_DIRECTORY}/usr/bin/* ${CPACK_TEMPORARY_DIRECTORY}/usr/*.a)
execute_process(COMMAND
  strip --strip-debug --remove-section=.comment --enable-deterministic-archives ${binaries}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND
  find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
