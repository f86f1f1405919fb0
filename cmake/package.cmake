# What `cmake --install` puts where, and the Debian package that `cpack` makes of it.
include(GNUInstallDirs)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/timing-unit)

set(manual ${CMAKE_CURRENT_BINARY_DIR}/manual)
add_custom_command(OUTPUT ${manual}/stamp
                   COMMAND ${CMAKE_COMMAND} -E rm -rf ${manual}
                   COMMAND ${CMAKE_COMMAND} -E make_directory ${manual}
                   COMMAND tu --manual ${manual}
                   COMMAND ${CMAKE_COMMAND} -E touch ${manual}/stamp
                   DEPENDS tu COMMENT "manual pages and completions")
add_custom_target(manual ALL DEPENDS ${manual}/stamp)

install(TARGETS tu RUNTIME)
install(DIRECTORY scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/timing-unit FILES_MATCHING PATTERN "*.toml")
install(DIRECTORY docs DESTINATION ${documents} FILES_MATCHING PATTERN "*.md")
install(FILES README.md DESTINATION ${documents})
install(DIRECTORY ${manual}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 FILES_MATCHING PATTERN "*.1.gz")
install(FILES ${manual}/tu.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tu)
install(FILES ${manual}/_tu DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

# The names that packaging/packages lists for a need, as a control file has them.
function(packages_for need out)
  file(STRINGS ${CMAKE_SOURCE_DIR}/packaging/packages lines REGEX "^[^#].* ${need}$")
  list(TRANSFORM lines REPLACE "^([^ ]+) .*$" "\\1")
  list(JOIN lines ", " names)
  set(${out} "${names}" PARENT_SCOPE)
endfunction()

include(${CMAKE_CURRENT_LIST_DIR}/version.cmake)
version_of(${CMAKE_SOURCE_DIR} ${PROJECT_VERSION} CPACK_PACKAGE_VERSION)
set(CPACK_PACKAGE_NAME timing-unit)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Timing unit of a radio base station, with its simulated node")
set(CPACK_PACKAGE_DESCRIPTION
    "Runs the control software of a timing unit in a simulated node, on scenarios or beside real PTP masters and\n"
    "GPS receivers, scores its clock, and tells what a unit makes of captures and receivers' logs.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "The timing unit's maintainers <root@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
packages_for(run CPACK_DEBIAN_PACKAGE_RECOMMENDS)
packages_for(lab CPACK_DEBIAN_PACKAGE_SUGGESTS)
include(CPack)
