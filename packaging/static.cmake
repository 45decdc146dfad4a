# A program that runs on any Linux of its architecture, whatever libraries and however old: nothing
# is linked at run time, and the C library in it asks for Linux 3.2.

option(QUILLMERE_STATIC "Link the program statically, as it is packaged" OFF)

if(QUILLMERE_STATIC AND CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  message(FATAL_ERROR "A sanitizer needs its library at run time: QUILLMERE_STATIC has to be OFF")
endif()

# quillmere_link_statically(TARGET): links TARGET statically. Its address is random all the same:
# quillmere_hardening leaves the choice of the kind of program to this.
function(quillmere_link_statically target)
  set_target_properties(${target} PROPERTIES QUILLMERE_LINKED_STATICALLY ON)
  target_link_options(${target} PRIVATE -static-pie)
endfunction()
