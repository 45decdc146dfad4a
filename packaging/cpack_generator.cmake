# Read by cpack once for each kind of package, whose name is in CPACK_GENERATOR.

list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)

set(components_of_DEB Unspecified debian system)
set(components_of_RPM Unspecified elsewhere system)
set(components_of_TGZ Unspecified elsewhere portable)
set(CPACK_INSTALL_CMAKE_PROJECTS "")
foreach(component IN LISTS components_of_${CPACK_GENERATOR})
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS ${build_folder} quillmere ${component} /)
endforeach()

# The archive unpacks into a folder of its own, anywhere; the packages install below /usr.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
