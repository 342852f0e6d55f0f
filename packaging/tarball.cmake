# Packs the laid-out files into a tarball that is the same for the same sources: in the order of the
# names, with the time of the release, and owned by nobody in particular.

if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  message(FATAL_ERROR "SOURCE_DATE_EPOCH must be set")
endif()

set(tarball ${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.tgz)
execute_process(COMMAND
  tar --create --file=${tarball} "--use-compress-program=gzip -9n" --format=ustar --sort=name
  --mtime=@$ENV{SOURCE_DATE_EPOCH} --owner=0 --group=0 --numeric-owner
  --directory=${CPACK_TEMPORARY_DIRECTORY}/.. ${CPACK_PACKAGE_FILE_NAME}
  COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_EXTERNAL_BUILT_PACKAGES ${tarball})
