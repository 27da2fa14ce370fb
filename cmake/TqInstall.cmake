# `cmake --install` lays the system where it runs. Its paths are constants of the build (platform/paths.h), so
# they do not follow the prefix; DESTDIR stages them elsewhere.
set(TQ_INSTALL_ROOT /usr/torqv)
set(TQ_FOLDER_MODE OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS tqhostdbcmd tqenroll tqmasterd RUNTIME DESTINATION ${TQ_INSTALL_ROOT}/torquenix/bin)
install(TARGETS tqhttp LIBRARY DESTINATION ${TQ_INSTALL_ROOT}/torquenix/lib)

# The programs make no folders of their own: a missing log folder means that no log is wanted.
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/torquenix/logs/admin DIRECTORY_PERMISSIONS ${TQ_FOLDER_MODE})
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/var DIRECTORY_PERMISSIONS ${TQ_FOLDER_MODE})
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/var/identity
        DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/locale DESTINATION ${TQ_INSTALL_ROOT}/torquenix/share)
