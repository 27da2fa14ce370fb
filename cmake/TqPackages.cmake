# Debian and RPM packages of what TqInstall.cmake installs: `cpack` in a build folder lays them into packages/ there.
# Two packages, tqhostdb-client and tqhostdb-master; their components are groups, so that each kind of package can
# bring what only it has.
set(CPACK_PACKAGE_NAME tqhostdb)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "tqhostdb maintainers")
set(CPACK_PACKAGE_CONTACT "tqhostdb maintainers <maintainers@tqhostdb.invalid>")
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB RPM)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
# The paths below the install root are absolute; DESTDIR is what stages them.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/TqPackageKind.cmake)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

# These reach the templates of the RPM packages, too: cpack hands on what begins with CPACK_.
set(CPACK_TQ_INSTALL_ROOT ${TQ_INSTALL_ROOT})
set(CPACK_TQ_CLIENT_SUMMARY "Keeps this host's record current on its master servers")
set(CPACK_TQ_CLIENT_DESCRIPTION
"tqhostdbcmd describes the host that it runs on in one record (identity, names,
operating system, packages, hardware, hypervisor, cluster names) and keeps that
record current in the host database of every master server that the host
belongs to, over REST with mutual TLS. Timers run it once an hour.
tqenroll gives the host its identity towards a master server.")
set(CPACK_TQ_MASTER_SUMMARY "Master server's host database as a REST service")
set(CPACK_TQ_MASTER_DESCRIPTION
"tqmasterd keeps the records of a fleet's hosts in one folder and serves them
over HTTPS on port 1556. It is its own certificate authority: it gives every
invited host a certificate, and takes requests of nobody without one.")

# Debian
set(TQ_DEB ${TQ_PACKAGING}/deb)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME tqhostdb-client)
set(CPACK_DEBIAN_CLIENT_DESCRIPTION "${CPACK_TQ_CLIENT_SUMMARY}\n${CPACK_TQ_CLIENT_DESCRIPTION}")
set(CPACK_DEBIAN_CLIENT_PACKAGE_RECOMMENDS "dmidecode, pciutils")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA
    ${TQ_DEB}/client/postinst ${TQ_DEB}/client/prerm ${TQ_DEB}/client/postrm ${TQ_DEB}/client/conffiles)
set(CPACK_DEBIAN_MASTER_PACKAGE_NAME tqhostdb-master)
set(CPACK_DEBIAN_MASTER_DESCRIPTION "${CPACK_TQ_MASTER_SUMMARY}\n${CPACK_TQ_MASTER_DESCRIPTION}")
set(CPACK_DEBIAN_MASTER_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers")
set(CPACK_DEBIAN_MASTER_PACKAGE_CONTROL_EXTRA
    ${TQ_DEB}/master/postinst ${TQ_DEB}/master/prerm ${TQ_DEB}/master/postrm)

# RPM. cpack's own spec file would mark every file below the install root as configuration.
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_CLIENT_PACKAGE_NAME tqhostdb-client)
set(CPACK_RPM_CLIENT_USER_BINARY_SPECFILE ${TQ_PACKAGING}/rpm/client.spec.in)
set(CPACK_RPM_MASTER_PACKAGE_NAME tqhostdb-master)
set(CPACK_RPM_MASTER_USER_BINARY_SPECFILE ${TQ_PACKAGING}/rpm/master.spec.in)

include(CPack)
