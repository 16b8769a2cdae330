# What is installed where, and the two Debian packages that CPack makes of it: plxserver (component "server") for whoever
# runs the server, plx-dev (component "dev") for whoever writes modules. script/package calls it with the preset "package".
set(PLX_MODULE_FOLDER lib/plxserver)  # beside no other package's files, so it needs no folder per architecture
set(PLX_SAMPLE_SITES ${CMAKE_INSTALL_DATADIR}/plxserver/sites)
set(PLX_CONFIGURATION_FOLDER ${CMAKE_INSTALL_SYSCONFDIR}/plxserver)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(PLX_CONFIGURATION_FOLDER /etc/plxserver)
endif()
set(PLX_PACKAGE_FILES ${PROJECT_BINARY_DIR}/packaging)
set(PLX_PACKAGE_RELEASE 1)

# ---- The server --------------------------------------------------------------------------------------------------------
install(TARGETS plxserver RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT server)
install(TARGETS plxmodule-network LIBRARY DESTINATION ${PLX_MODULE_FOLDER} COMPONENT server)

configure_file(packaging/plxserver.conf.in ${PLX_PACKAGE_FILES}/plxserver.conf @ONLY)
install(FILES ${PLX_PACKAGE_FILES}/plxserver.conf DESTINATION ${PLX_CONFIGURATION_FOLDER} COMPONENT server)
install(DIRECTORY packaging/site/ DESTINATION ${PLX_SAMPLE_SITES}/welcome COMPONENT server)
install(FILES packaging/plxserver.service DESTINATION lib/systemd/system COMPONENT server)
install(FILES packaging/plxserver.bash-completion RENAME plxserver
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT server)

# The manual page is made of what --help says, so it cannot say anything else.
add_custom_command(OUTPUT ${PLX_PACKAGE_FILES}/plxserver.8.gz
  COMMAND ${PROJECT_SOURCE_DIR}/packaging/manual-page $<TARGET_FILE:plxserver> ${PLX_PACKAGE_FILES}/plxserver.8
  COMMAND gzip -9nkf ${PLX_PACKAGE_FILES}/plxserver.8
  DEPENDS plxserver packaging/manual-page VERBATIM)
add_custom_target(plxserver-manual ALL DEPENDS ${PLX_PACKAGE_FILES}/plxserver.8.gz)
install(FILES ${PLX_PACKAGE_FILES}/plxserver.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT server)

install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plxserver COMPONENT server
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN decisions EXCLUDE)
install(DIRECTORY recipes DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plxserver COMPONENT server)

# ---- For module developers ---------------------------------------------------------------------------------------------
install(DIRECTORY plx-api/include/ plx-foundation/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/plx COMPONENT dev)
install(TARGETS plx-api plx-foundation plx-module-glue EXPORT PLXTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
set_target_properties(plx-api PROPERTIES EXPORT_NAME api)
set_target_properties(plx-foundation PROPERTIES EXPORT_NAME foundation)
set_target_properties(plx-module-glue PROPERTIES EXPORT_NAME module-glue)

include(CMakePackageConfigHelpers)
set(PLX_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/PLX)
install(EXPORT PLXTargets NAMESPACE PLX:: DESTINATION ${PLX_CMAKE_FOLDER} COMPONENT dev)
configure_package_config_file(packaging/PLXConfig.cmake.in ${PLX_PACKAGE_FILES}/PLXConfig.cmake
  INSTALL_DESTINATION ${PLX_CMAKE_FOLDER})
write_basic_package_version_file(${PLX_PACKAGE_FILES}/PLXConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PLX_PACKAGE_FILES}/PLXConfig.cmake ${PLX_PACKAGE_FILES}/PLXConfigVersion.cmake
  DESTINATION ${PLX_CMAKE_FOLDER} COMPONENT dev)
foreach(NAME plx-api plx-foundation)
  configure_file(packaging/${NAME}.pc.in ${PLX_PACKAGE_FILES}/${NAME}.pc @ONLY)
  install(FILES ${PLX_PACKAGE_FILES}/${NAME}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
install(FILES docs/host-api.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plx-dev COMPONENT dev)
install(DIRECTORY examples/hello-module DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plx-dev/examples COMPONENT dev
  PATTERN build EXCLUDE)

# ---- The packages ------------------------------------------------------------------------------------------------------
# What every Debian package tells of itself.
configure_file(packaging/debian/changelog.in ${PLX_PACKAGE_FILES}/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nc ${PLX_PACKAGE_FILES}/changelog.Debian OUTPUT_FILE ${PLX_PACKAGE_FILES}/changelog.Debian.gz)
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md OUTPUT_FILE ${PLX_PACKAGE_FILES}/changelog.gz)
foreach(PAIR server=plxserver dev=plx-dev)
  string(REGEX MATCH "^(.*)=(.*)$" PAIR ${PAIR})
  # Closing a wish for a package is for what is uploaded to Debian.
  file(WRITE ${PLX_PACKAGE_FILES}/overrides/${CMAKE_MATCH_2} "${CMAKE_MATCH_2}: initial-upload-closes-no-bugs\n")
  install(FILES ${PLX_PACKAGE_FILES}/overrides/${CMAKE_MATCH_2}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${CMAKE_MATCH_1})
  install(FILES packaging/debian/copyright ${PLX_PACKAGE_FILES}/changelog.gz ${PLX_PACKAGE_FILES}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CMAKE_MATCH_2} COMPONENT ${CMAKE_MATCH_1})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME plx)
set(CPACK_PACKAGE_VENDOR PLX)
set(CPACK_PACKAGE_CONTACT "PLX maintainers <maintainers@plx.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR})
set(CPACK_COMPONENTS_ALL server dev)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)  # the configuration is not below /usr
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${PLX_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE plx)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME plxserver)
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION httpd)
set(CPACK_DEBIAN_SERVER_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "nginx, stunnel4, msmtp, fail2ban, odbc-postgresql, sqlite3")
set(CPACK_COMPONENT_SERVER_DESCRIPTION "web server for pages with tags that talk to the network
PLX Server serves pages whose tags are run by modules. The network module that
comes with it includes other addresses in a page, sends mail, collects POP3
mailboxes into a database and is a web mail client.
.
It has sites and regions, logins, an administration in the browser, record
databases on SQLite or PostgreSQL, one process and one configuration file.")
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
  ${PROJECT_SOURCE_DIR}/packaging/debian/prerm ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME plx-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS plxserver)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "cmake, pkg-config")
set(CPACK_COMPONENT_DEV_DESCRIPTION "headers and library for modules of PLX Server
A module for PLX Server is a shared library that registers tags. This package
holds the header of the server's API, the foundation (strings, containers,
encoders, decimals, protocol clients) as headers and a static library, a CMake
package, pkg-config files and an example module.")
include(CPack)
