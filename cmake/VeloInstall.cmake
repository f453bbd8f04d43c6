# Where things are put by `cmake --install`, and the Debian packages that cpack makes of them (scripts/package.sh).
# Component `velo` is what runs, `velo-dev` what plugins are built with, `velo-dpdk` what dpdk: ports need besides, where
# it was built.
include(GNUInstallDirs)

# Program, plugin and platform library lie side by side, where the program looks for them.
set(VELO_PROGRAM_DIR lib/velo)
set_target_properties(velo VeloAcl velo-platform PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS velo RUNTIME DESTINATION ${VELO_PROGRAM_DIR} COMPONENT velo)
install(TARGETS VeloAcl velo-platform LIBRARY DESTINATION ${VELO_PROGRAM_DIR} COMPONENT velo)
set(velo_packages velo velo-dev)
if(TARGET VeloDpdk)
  list(APPEND velo_packages velo-dpdk)
  install(TARGETS VeloDpdk LIBRARY DESTINATION ${VELO_PROGRAM_DIR} COMPONENT velo-dpdk)
endif()
# What `cmake --install` makes by itself is made for the prefix that it is given.
install(CODE "
  set(to \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
  file(MAKE_DIRECTORY \"\${to}/bin\")
  file(CREATE_LINK ../${VELO_PROGRAM_DIR}/velo \"\${to}/bin/velo\" SYMBOLIC)
  # A system has one /etc and one place for units, not one below /usr.
  string(REGEX REPLACE \"/usr\$\" \"\" system \"\${to}\")
  string(REGEX REPLACE \"/usr\$\" \"\" configuration \"\${CMAKE_INSTALL_PREFIX}\")
  string(APPEND configuration /etc/velo)
  file(READ \"${CMAKE_SOURCE_DIR}/packaging/velo.service\" unit)
  # Below another prefix the program is elsewhere.
  if(NOT CMAKE_INSTALL_PREFIX MATCHES \"/usr\$\")
    string(REPLACE /usr/bin/velo \"\${CMAKE_INSTALL_PREFIX}/bin/velo\" unit \"\${unit}\")
    string(REPLACE /etc/velo/ \"\${configuration}/\" unit \"\${unit}\")
  endif()
  file(WRITE \"\${system}/lib/systemd/system/velo.service\" \"\${unit}\")
  # What people have written there stays.
  foreach(file velo.acl options)
    if(NOT EXISTS \"\${system}/etc/velo/\${file}\")
      file(INSTALL \"${CMAKE_SOURCE_DIR}/packaging/etc/\${file}\" DESTINATION \"\${configuration}\")
    endif()
  endforeach()" COMPONENT velo)

# Compressed without a time in them, so that they are the same whenever it is done.
find_program(GZIP gzip REQUIRED)
set(made ${CMAKE_BINARY_DIR}/install)
file(MAKE_DIRECTORY ${made})
function(velo_gzip from to)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${from})
  execute_process(COMMAND ${GZIP} -9nc ${from} OUTPUT_FILE ${made}/${to} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
set(share ${CMAKE_INSTALL_DATADIR})
# The manual page of the language is the document of the language.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS docs/configuration.md scripts/manual_page.py)
execute_process(
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/scripts/manual_page.py ${CMAKE_SOURCE_DIR}/docs/configuration.md
    velo-acl 5 "configuration of velo: access lists, bindings, port-channels, mirror sessions"
  OUTPUT_FILE ${made}/velo-acl.5 COMMAND_ERROR_IS_FATAL ANY)
velo_gzip(${made}/velo-acl.5 velo-acl.5.gz)
install(FILES ${made}/velo-acl.5.gz DESTINATION ${share}/man/man5 COMPONENT velo)
# The program writes the manual pages of its commands itself.
install(CODE "
  set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${share}/man/man1\")
  file(MAKE_DIRECTORY \"\${folder}\")
  execute_process(COMMAND \"$<TARGET_FILE:velo>\" manual \"\${folder}\" COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB pages \"\${folder}/velo*.1\")
  execute_process(COMMAND ${GZIP} -9nf \${pages} COMMAND_ERROR_IS_FATAL ANY)" COMPONENT velo)
set(completion packaging/completion)
install(FILES ${completion}/velo.bash DESTINATION ${share}/bash-completion/completions RENAME velo COMPONENT velo)
install(FILES ${completion}/velo.zsh DESTINATION ${share}/zsh/vendor-completions RENAME _velo COMPONENT velo)
install(FILES ${completion}/velo.fish DESTINATION ${share}/fish/vendor_completions.d COMPONENT velo)

file(GLOB documents CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md)
install(FILES ${documents} packaging/alerts.yml packaging/dashboard.json DESTINATION ${share}/doc/velo COMPONENT velo)
install(DIRECTORY docs/schema DESTINATION ${share}/doc/velo COMPONENT velo)
install(FILES examples/demo.acl examples/any.acl examples/shadowed.acl DESTINATION ${share}/doc/velo/examples COMPONENT velo)

# What a plugin includes: the headers that the interface version is made of, and that version.
foreach(folder platform/ Acl Classify)
  install(DIRECTORY ${folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velo COMPONENT velo-dev FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES ${CMAKE_BINARY_DIR}/interface/velo-interface-version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velo
  COMPONENT velo-dev)

velo_describe(version)
configure_file(cmake/VeloConfig.cmake.in ${made}/VeloConfig.cmake @ONLY)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${made}/VeloConfigVersion.cmake VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${made}/VeloConfig.cmake ${made}/VeloConfigVersion.cmake DESTINATION lib/cmake/Velo COMPONENT velo-dev)
install(DIRECTORY examples/plugin DESTINATION ${share}/doc/velo-dev/examples COMPONENT velo-dev)

# The packages. Their version is the program's; in Debian's order what comes before a release has a tilde.
string(REPLACE - ~ version ${version})
# Debian wants its own form of a change log beside ours.
file(CONFIGURE OUTPUT ${made}/changelog CONTENT "velo (${version}) stable; urgency=medium

  * What has changed is told in CHANGELOG.md.

 -- The velo developers <developers@velo.example>  Mon, 01 Jan 2024 00:00:00 +0000
" @ONLY)
velo_gzip(${made}/changelog changelog.gz)
foreach(package ${velo_packages})
  install(FILES ${made}/changelog.gz CHANGELOG.md DESTINATION ${share}/doc/${package} COMPONENT ${package})
  install(FILES LICENSE DESTINATION ${share}/doc/${package} RENAME copyright COMPONENT ${package})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velo)
set(CPACK_PACKAGE_VERSION ${version})
set(CPACK_PACKAGE_CONTACT "The velo developers <developers@velo.example>")
set(CPACK_COMPONENTS_ALL ${velo_packages})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_VELO_PACKAGE_NAME velo)
set(CPACK_DEBIAN_VELO_PACKAGE_SHLIBDEPS ON)
# The platform library is a file of the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_VELO_DESCRIPTION "access lists between network interfaces
A software forwarding agent that filters frames through IPv4, IPv6 and MAC
access lists, counts what every rule matched, and explains every verdict.")
set(CPACK_DEBIAN_VELO_PACKAGE_CONTROL_EXTRA conffiles postinst prerm postrm)
list(TRANSFORM CPACK_DEBIAN_VELO_PACKAGE_CONTROL_EXTRA PREPEND ${CMAKE_SOURCE_DIR}/packaging/debian/)
set(CPACK_DEBIAN_VELO-DEV_PACKAGE_NAME velo-dev)
set(CPACK_DEBIAN_VELO-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_VELO-DEV_PACKAGE_DEPENDS "velo (= ${version}), libfmt-dev")
set(CPACK_DEBIAN_VELO-DEV_DESCRIPTION "headers for plugins of velo
What a plugin that velo opens is built with. A plugin fits the agent that
has the same interface version: it is to be built again for another one.")
set(CPACK_DEBIAN_VELO-DPDK_PACKAGE_NAME velo-dpdk)
set(CPACK_DEBIAN_VELO-DPDK_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_VELO-DPDK_PACKAGE_DEPENDS "velo (= ${version})")
# Its drivers are libraries of their own.
set(CPACK_DEBIAN_VELO-DPDK_PACKAGE_RECOMMENDS librte-meta-net)
set(CPACK_DEBIAN_VELO-DPDK_DESCRIPTION "ports of velo on user-space drivers
The library that velo opens for a port on a driver of DPDK, on a device that is
bound to it or a virtual one.")
include(CPack)
