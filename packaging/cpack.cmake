# What is installed beside the program, and the packages: cpack makes a .deb, a .rpm and a .tar.gz.
#
# Four components differ between the packages. "debian" is in the Debian package only, "elsewhere"
# everywhere but there, "system" in the packages that belong to a whole system, "portable" where they
# don't, and what names no component is in all of them. cpack_generator.cmake chooses.

set(QUILLMERE_MAINTAINER "quillmere maintainers <maintainers@quillmere.invalid>")

# --- Files that have to be made -----------------------------------------------------------------

# quillmere_compress(SOURCE NAME OUT_VARIABLE): compresses SOURCE into NAME when the program is
# built. Without a name and a time in it, the result depends on the content alone.
find_program(QUILLMERE_GZIP gzip REQUIRED)
mark_as_advanced(QUILLMERE_GZIP)
set(quillmere_made_files "")
function(quillmere_compress source name out_variable)
  set(result ${PROJECT_BINARY_DIR}/packaging/${name})
  add_custom_command(OUTPUT ${result}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packaging
    COMMAND ${QUILLMERE_GZIP} -9 -n -c ${source} > ${result}
    DEPENDS ${source}
    VERBATIM)
  set(${out_variable} ${result} PARENT_SCOPE)
  set(quillmere_made_files ${quillmere_made_files} ${result} PARENT_SCOPE)
endfunction()

# quillmere_document(SOURCE OUT_VARIABLE): lets the links of a document lead to what is installed.
function(quillmere_document source out_variable)
  get_filename_component(name ${source} NAME)
  set(result ${PROJECT_BINARY_DIR}/packaging/${name})
  set(rules ${PROJECT_SOURCE_DIR}/packaging/installed_links.sed)
  add_custom_command(OUTPUT ${result}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packaging
    COMMAND sed -E -f ${rules} ${source} > ${result}
    DEPENDS ${source} ${rules}
    VERBATIM)
  set(${out_variable} ${result} PARENT_SCOPE)
  set(quillmere_made_files ${quillmere_made_files} ${result} PARENT_SCOPE)
endfunction()

quillmere_compress(${PROJECT_SOURCE_DIR}/man/quillmere.1 quillmere.1.gz manual_page)
quillmere_compress(${PROJECT_SOURCE_DIR}/man/quillmere-archive.1 quillmere-archive.1.gz
  archive_manual_page)
quillmere_compress(${PROJECT_SOURCE_DIR}/man/quillmere-report.1 quillmere-report.1.gz
  report_manual_page)
quillmere_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog.gz changelog)
quillmere_compress(${PROJECT_SOURCE_DIR}/packaging/debian/changelog changelog.Debian.gz
  debian_changelog)
quillmere_document(${PROJECT_SOURCE_DIR}/README.md readme)
quillmere_document(${PROJECT_SOURCE_DIR}/SECURITY.md security)
quillmere_document(${PROJECT_SOURCE_DIR}/docs/archive.md archive_layout)
quillmere_document(${PROJECT_SOURCE_DIR}/docs/consumers.md consumers)
quillmere_document(${PROJECT_SOURCE_DIR}/docs/documents.md documents)
quillmere_document(${PROJECT_SOURCE_DIR}/docs/operations.md operations)
add_custom_target(quillmere_made_files DEPENDS ${quillmere_made_files})
# Whoever builds the program alone can install it as well.
add_dependencies(quillmere quillmere_made_files)

# --- What is installed --------------------------------------------------------------------------

install(FILES ${manual_page} ${archive_manual_page} ${report_manual_page}
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(PROGRAMS ${PROJECT_SOURCE_DIR}/report/quillmere-report DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/report/page ${PROJECT_SOURCE_DIR}/report/quillmere_report
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillmere/report PATTERN __pycache__ EXCLUDE)

# The places where both shells look on their own, also below /usr/local.
install(FILES ${PROJECT_SOURCE_DIR}/completions/quillmere.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quillmere)
install(FILES ${PROJECT_SOURCE_DIR}/completions/quillmere-archive.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quillmere-archive)
install(FILES ${PROJECT_SOURCE_DIR}/completions/quillmere-report.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quillmere-report)
set(zsh_completions
  ${PROJECT_SOURCE_DIR}/completions/_quillmere ${PROJECT_SOURCE_DIR}/completions/_quillmere-archive
  ${PROJECT_SOURCE_DIR}/completions/_quillmere-report)
install(FILES ${zsh_completions}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT elsewhere)
# Debian's zsh leaves site-functions to the administrator and looks here for packages.
install(FILES ${zsh_completions}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT debian EXCLUDE_FROM_ALL)

install(FILES ${readme} ${security} ${archive_layout} ${consumers} ${documents} ${operations}
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/samples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/examples/python/quillmere_archive.py
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/python)
install(FILES ${PROJECT_SOURCE_DIR}/examples/node/quillmere_entries.mjs
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/node)
install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT elsewhere)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${changelog} ${debian_changelog}
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT debian EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME quillmere
  COMPONENT debian EXCLUDE_FROM_ALL)

install(FILES
  ${PROJECT_SOURCE_DIR}/schemas/archive_set.schema.json
  ${PROJECT_SOURCE_DIR}/schemas/backup_sets.schema.json
  ${PROJECT_SOURCE_DIR}/schemas/image.schema.json
  ${PROJECT_SOURCE_DIR}/schemas/manifest.schema.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillmere/schemas)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/prometheus/quillmere-archive.rules.yml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillmere/prometheus)

# quillmere_install_service(COMPONENT UNITS SYSUSERS TMPFILES DEFAULTS [OPTION...]): what runs the
# archive every night, into these four folders. Nothing of it is in effect by itself.
set(systemd ${PROJECT_SOURCE_DIR}/packaging/systemd)
function(quillmere_install_service component units sysusers tmpfiles defaults)
  install(FILES ${systemd}/quillmere-archive.service ${systemd}/quillmere-archive.timer
    DESTINATION ${units} COMPONENT ${component} ${ARGN})
  install(FILES ${systemd}/quillmere-archive.sysusers
    DESTINATION ${sysusers} RENAME quillmere-archive.conf COMPONENT ${component} ${ARGN})
  install(FILES ${systemd}/quillmere-archive.tmpfiles
    DESTINATION ${tmpfiles} RENAME quillmere-archive.conf COMPONENT ${component} ${ARGN})
  install(FILES ${systemd}/quillmere-archive.default
    DESTINATION ${defaults} RENAME quillmere-archive COMPONENT ${component} ${ARGN})
endfunction()
quillmere_install_service(system
  lib/systemd/system lib/sysusers.d lib/tmpfiles.d /etc/default EXCLUDE_FROM_ALL)
# Whoever unpacks an archive or installs a build puts them where they belong.
set(examples ${CMAKE_INSTALL_DATADIR}/quillmere/systemd)
quillmere_install_service(portable
  ${examples} ${examples}/sysusers.d ${examples}/tmpfiles.d ${examples}/default)
install(FILES
  ${systemd}/examples/archive-elsewhere.conf
  ${systemd}/examples/metrics.conf
  ${systemd}/examples/product-group.conf
  ${systemd}/examples/root.conf
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# The examples around an archive; the others stay in the sources.
set(database_examples ${PROJECT_SOURCE_DIR}/examples)
install(FILES
  ${database_examples}/common/questions.py ${database_examples}/common/tsv.py
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/common)
install(FILES
  ${database_examples}/sqlite/README.md ${database_examples}/sqlite/questions.sql ${database_examples}/sqlite/schema.sql
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/sqlite)
install(PROGRAMS ${database_examples}/sqlite/ask.py ${database_examples}/sqlite/load.py
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/sqlite)
install(FILES
  ${database_examples}/clickhouse/README.md ${database_examples}/clickhouse/questions.sql
  ${database_examples}/clickhouse/schema.sql ${database_examples}/clickhouse/shard.py ${database_examples}/clickhouse/shard.xml
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/clickhouse)
install(PROGRAMS
  ${database_examples}/clickhouse/ask.py ${database_examples}/clickhouse/clear.py ${database_examples}/clickhouse/load.py
  ${database_examples}/clickhouse/two_shards.sh
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/clickhouse)

# --- The packages -------------------------------------------------------------------------------

set(CPACK_GENERATOR DEB RPM TGZ)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/packaging/cpack_generator.cmake)
set(CPACK_PACKAGE_NAME quillmere)
set(CPACK_PACKAGE_VENDOR "quillmere maintainers")
set(CPACK_PACKAGE_CONTACT ${QUILLMERE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "export a host backup product's catalogue as JSON")
set(CPACK_PACKAGE_DESCRIPTION
"Runs on a backup server, asks the backup product's administrative commands for
its catalogue of backup images, and writes it as JSON documents for another
program to consume: the backup sets with their creation times and sizes, and
for each image its metadata and its file entries.")
set(CPACK_PACKAGE_FILE_NAME quillmere-${PROJECT_VERSION}-linux-x86_64)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_THREADS 1)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/cpack_staged_files.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QUILLMERE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# For quillmere-report alone.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS python3)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
# A static program depends on nothing that is not on every Debian anyway.
if(NOT QUILLMERE_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_PACKAGE_LICENSE "Copyright: the quillmere maintainers")
set(CPACK_RPM_PACKAGE_GROUP "Applications/Archiving")
# The product's commands are started through the system's shell.
set(CPACK_RPM_PACKAGE_REQUIRES "/bin/sh")
if(QUILLMERE_STATIC)
  # rpm takes a static program for one that needs a loader.
  set(CPACK_RPM_PACKAGE_AUTOREQ no)
endif()
# The files are packaged as they were installed, with no links to their build ids beside them, and
# the name of the machine is nobody's business.
set(CPACK_RPM_SPEC_MORE_DEFINE
"%define _build_id_links none
%define _buildhost localhost
%define use_source_date_epoch_as_buildtime 1
%define __os_install_post %{nil}")
# Folders that belong to the system, beside those that cpack leaves out by itself.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/share/man /usr/share/man/man1
  /usr/share/bash-completion /usr/share/bash-completion/completions
  /usr/share/zsh /usr/share/zsh/site-functions
  /etc/default /usr/lib/systemd /usr/lib/systemd/system /usr/lib/sysusers.d /usr/lib/tmpfiles.d)
set(CPACK_RPM_USER_FILELIST "%config(noreplace) /etc/default/quillmere-archive")

include(CPack)
