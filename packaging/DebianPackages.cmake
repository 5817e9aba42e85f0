# The Debian packages: "cpack --config build/release/CPackConfig.cmake -B build/packages" makes them of a finished build.
#
#   switchboard          the service, switchboardctl, manuals, completions and units
#   libswitchboard0      the client library, for programs that were built against it
#   libswitchboard-dev   what building against it takes
#
# A component of the installation is a package of the same name; what belongs to which is said where it is installed.

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL switchboard libswitchboard0 libswitchboard-dev)
# What is written at the time of installing names the last place of things, and so has to be installed as if into it.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
# The service names functions in its log by its own symbol table, which stripping would take away.
set(CPACK_STRIP_FILES OFF)

set(CPACK_PACKAGE_NAME switchboard)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # Each package has a first line of its own.
set(CPACK_PACKAGE_CONTACT "The switchboard's developers <root@localhost>" CACHE STRING "Who made the packages")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A program needs exactly the library that it was built against, as long as that promises nothing between versions.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_SWITCHBOARD_DESCRIPTION "Service through which programs find each other
A program publishes an endpoint under an identifier, and another program of
the same user asks for it and then talks to the publisher directly. This
package has the service, its command-line tool and the units that start it.")
set(CPACK_DEBIAN_SWITCHBOARD_PACKAGE_NAME switchboard)
set(CPACK_DEBIAN_SWITCHBOARD_PACKAGE_SECTION admin)
# Compares names beyond ASCII, and is only loaded for that.
set(CPACK_DEBIAN_SWITCHBOARD_PACKAGE_RECOMMENDS libicu72)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/conffiles "/etc/default/switchboard\n")
set(scripts ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_SWITCHBOARD_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_BINARY_DIR}/conffiles ${scripts}/postinst ${scripts}/prerm ${scripts}/postrm)

set(CPACK_DEBIAN_LIBSWITCHBOARD0_DESCRIPTION "Client library of the switchboard
For programs that publish endpoints, find those of others and exchange
notifications.")
set(CPACK_DEBIAN_LIBSWITCHBOARD0_PACKAGE_NAME libswitchboard0)
set(CPACK_DEBIAN_LIBSWITCHBOARD0_PACKAGE_SECTION libs)

set(CPACK_DEBIAN_LIBSWITCHBOARD-DEV_DESCRIPTION "Client library of the switchboard, for building programs
Headers, and how CMake and pkg-config find the library.")
set(CPACK_DEBIAN_LIBSWITCHBOARD-DEV_PACKAGE_NAME libswitchboard-dev)
set(CPACK_DEBIAN_LIBSWITCHBOARD-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBSWITCHBOARD-DEV_PACKAGE_DEPENDS "libswitchboard0 (= ${PROJECT_VERSION})")

include(CPack)
