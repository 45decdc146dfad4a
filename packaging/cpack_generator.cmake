# Read by cpack once for each kind of package, whose name is in CPACK_GENERATOR.

list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)

if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_INSTALL_CMAKE_PROJECTS
    ${build_folder} quillmere Unspecified /
    ${build_folder} quillmere debian /)
endif()

# The archive unpacks into a folder of its own, anywhere; the packages install below /usr.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
