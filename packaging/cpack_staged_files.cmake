# Read by cpack before it makes a package of what was installed. The folders in it are for everybody,
# also where whoever makes the package has a umask that keeps others out, and all is of the same time.

file(CHMOD_RECURSE ${CPACK_TEMPORARY_INSTALL_DIRECTORY} DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY}
    -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
  COMMAND_ERROR_IS_FATAL ANY)
