# What distributions compile and link their programs with. Link quillmere_hardening to a program and
# to each library that becomes part of it.
#
#   position-independent code    the program's address differs from run to run
#   RELRO, BIND_NOW              the table of foreign functions is read-only once the program runs
#   -fstack-protector-strong     a function whose frame was overrun does not return
#   -D_FORTIFY_SOURCE=2          calls of the C library whose target size is known are checked
#   noexecstack                  nothing on the stack is run
#
# tests/packages/hardening_test.py looks for each of them in the linked programs.

add_library(quillmere_hardening INTERFACE)

target_compile_options(quillmere_hardening INTERFACE -fPIE -fstack-protector-strong)
# Exceptions name the file that throws them. Where that was on the machine that built the program
# is nobody's business. ccache can make its path relative.
file(RELATIVE_PATH relative_source_dir ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
target_compile_options(quillmere_hardening INTERFACE
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${relative_source_dir}=)
target_link_options(quillmere_hardening INTERFACE
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:QUILLMERE_LINKED_STATICALLY>>>:-pie>
  LINKER:-z,relro,-z,now,-z,noexecstack)

# Needs the optimiser, and a sanitizer checks the same calls itself. Some compilers define the macro
# on their own, hence -U.
if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_compile_options(quillmere_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
endif()
