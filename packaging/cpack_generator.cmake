# Read by cpack once for each kind of package, whose name is in CPACK_GENERATOR.

list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)

set(components_of_DEB Unspecified debian system)
set(components_of_RPM Unspecified elsewhere system)
set(components_of_TGZ Unspecified elsewhere portable)
set(CPACK_INSTALL_CMAKE_PROJECTS "")
foreach(component IN LISTS components_of_${CPACK_GENERATOR})
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${build_folder} quillmere ${component} /)
endforeach()

# The same sources, compiler and umask give the same packages, byte for byte, whenever and wherever
# they are built: the time in them is that of the last commit or, where there is no repository, of
# the change log's newest entry.
get_filename_component(source_folder ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(time "")
  if(EXISTS ${source_folder}/.git)
    # The tree may belong to another user, as it does where a container mounts it.
    execute_process(COMMAND git -c safe.directory=${source_folder} log -1 --format=%ct
      WORKING_DIRECTORY ${source_folder}
      OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE)
  endif()
  if(time STREQUAL "")
    file(STRINGS ${source_folder}/packaging/debian/changelog last_package REGEX "^ -- " LIMIT_COUNT 1)
    string(REGEX REPLACE "^.*>  " "" last_package "${last_package}")
    execute_process(COMMAND date --date=${last_package} +%s
      OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${time})
endif()

# The archive unpacks into a folder of its own, anywhere; the packages install below /usr.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
