# `cmake --install` lays the system where it runs. Its paths are constants of the build (platform/paths.h), so
# they do not follow the prefix; DESTDIR stages them elsewhere. Below the prefix come the things that other programs
# look for: links to the programs, units, manual pages, completions.
#
# Components `client` and `master` are the two packages; client_deb, master_deb and client_rpm hold what only one kind
# of package has, and are no part of a plain installation.
include(GNUInstallDirs)
set(TQ_INSTALL_ROOT /usr/torqv)
set(TQ_BIN ${TQ_INSTALL_ROOT}/torquenix/bin)
set(TQ_CLIENT_PROGRAMS tqhostdbcmd tqenroll)
set(TQ_MASTER_PROGRAMS tqmasterd)
set(TQ_PACKAGING ${CMAKE_SOURCE_DIR}/packaging)
set(TQ_GENERATED ${CMAKE_BINARY_DIR}/packaging)
set(TQ_FOLDER_MODE OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Manual pages lie gzipped, as both kinds of packages want them, and without a time, so that builds repeat.
function(tq_install_manual_pages component)
    foreach(page ${ARGN})
        get_filename_component(name ${page} NAME)
        string(REGEX MATCH "[0-9]$" section ${name})
        set(zipped ${TQ_GENERATED}/man/${name}.gz)
        add_custom_command(OUTPUT ${zipped}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${TQ_GENERATED}/man
            COMMAND gzip -9n < ${page} > ${zipped}
            DEPENDS ${page}
            VERBATIM)
        set_property(GLOBAL APPEND PROPERTY TQ_PAPERS ${zipped})
        install(FILES ${zipped} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    endforeach()
endfunction()

# Links to the programs on the search path of root, relative as packages want them within /usr.
function(tq_install_links component)
    foreach(program ${ARGN})
        install(CODE "
            set(folder \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SBINDIR}\")
            file(RELATIVE_PATH target \"\${folder}\" ${TQ_BIN}/${program})
            message(STATUS \"Installing: \$ENV{DESTDIR}\${folder}/${program} -> \${target}\")
            file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${folder}\")
            file(CREATE_LINK \"\${target}\" \"\$ENV{DESTDIR}\${folder}/${program}\" SYMBOLIC)"
            COMPONENT ${component})
    endforeach()
endfunction()

# zsh looks in one folder for what Debian packages, and in another for everybody else's.
function(tq_install_completions component)
    foreach(program ${ARGN})
        set(bash ${TQ_PACKAGING}/completion/bash/${program})
        set(zsh ${TQ_PACKAGING}/completion/zsh/_${program})
        install(FILES ${bash} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
        install(FILES ${zsh} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
                COMPONENT ${component}_deb EXCLUDE_FROM_ALL)
        install(FILES ${zsh} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
                COMPONENT ${component}_rpm EXCLUDE_FROM_ALL)
    endforeach()
endfunction()

# A unit that runs tqhostdbcmd with the sandbox that its probes bear.
function(tq_update_unit name)
    cmake_parse_arguments(TQ_UNIT "" "DESCRIPTION;OPTIONS;WANTS;AFTER" "" ${ARGN})
    configure_file(${TQ_PACKAGING}/systemd/update.service.in ${TQ_GENERATED}/${name} @ONLY)
endfunction()

# What only one kind of package has: Debian's papers, and the preset that enables units elsewhere.
function(tq_install_papers component)
    set(TQ_PACKAGE tqhostdb-${component})
    set(folder ${TQ_GENERATED}/${component})
    configure_file(${TQ_PACKAGING}/deb/changelog.in ${folder}/changelog.Debian @ONLY)
    add_custom_command(OUTPUT ${folder}/changelog.Debian.gz
        COMMAND gzip -9n < ${folder}/changelog.Debian > ${folder}/changelog.Debian.gz
        DEPENDS ${folder}/changelog.Debian
        VERBATIM)
    set_property(GLOBAL APPEND PROPERTY TQ_PAPERS ${folder}/changelog.Debian.gz)
    install(FILES ${TQ_PACKAGING}/deb/copyright ${folder}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${TQ_PACKAGE} COMPONENT ${component}_deb EXCLUDE_FROM_ALL)
    install(FILES ${TQ_PACKAGING}/deb/${component}/lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${TQ_PACKAGE}
            COMPONENT ${component}_deb EXCLUDE_FROM_ALL)
    install(FILES ${TQ_PACKAGING}/rpm/${component}.preset
            DESTINATION lib/systemd/system-preset RENAME 80-${TQ_PACKAGE}.preset
            COMPONENT ${component}_rpm EXCLUDE_FROM_ALL)
endfunction()

# The client.
install(TARGETS ${TQ_CLIENT_PROGRAMS} RUNTIME DESTINATION ${TQ_BIN} COMPONENT client)
install(TARGETS tqhttp LIBRARY DESTINATION ${TQ_INSTALL_ROOT}/torquenix/lib COMPONENT client)
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/locale DESTINATION ${TQ_INSTALL_ROOT}/torquenix/share COMPONENT client)

# The version file that the record's "installed version" is read from.
file(CONFIGURE OUTPUT ${TQ_GENERATED}/version
     CONTENT "Torquenix-${CMAKE_SYSTEM_NAME}_${CMAKE_SYSTEM_PROCESSOR} ${PROJECT_VERSION}\n")
install(FILES ${TQ_GENERATED}/version DESTINATION ${TQ_BIN} COMPONENT client)

# The programs make no folders of their own: a missing log folder means that no log is wanted.
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/torquenix/logs/admin DIRECTORY_PERMISSIONS ${TQ_FOLDER_MODE}
        COMPONENT client)
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/var DIRECTORY_PERMISSIONS ${TQ_FOLDER_MODE} COMPONENT client)
install(DIRECTORY DESTINATION ${TQ_INSTALL_ROOT}/var/identity
        DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE COMPONENT client)

# An administrator's configuration stays; packages mark theirs as one.
install(CODE "
    if(NOT EXISTS \"\$ENV{DESTDIR}${TQ_INSTALL_ROOT}/torquenix/kx.conf\")
        file(INSTALL \"${TQ_PACKAGING}/kx.conf.initial\" DESTINATION ${TQ_INSTALL_ROOT}/torquenix RENAME kx.conf)
    endif()"
    COMPONENT client)
set(examples ${CMAKE_INSTALL_DATADIR}/doc/tqhostdb-client/examples)
install(FILES ${TQ_PACKAGING}/kx.conf DESTINATION ${examples} COMPONENT client)
install(PROGRAMS ${TQ_PACKAGING}/cluster-online ${TQ_PACKAGING}/cluster-offline DESTINATION ${examples} COMPONENT client)

tq_update_unit(tqhostdb-update.service
    DESCRIPTION "Host record update on all master servers"
    OPTIONS "-update -daemon")
tq_update_unit(tqhostdb-refresh.service
    DESCRIPTION "Host record update, sent whether the record has changed or not"
    OPTIONS "-update -daemon -force"
    # The hourly run would make this one give up at once: it holds the daemon lock.
    WANTS " tqhostdb-renew.service"
    AFTER " tqhostdb-renew.service tqhostdb-update.service")
install(FILES
        ${TQ_GENERATED}/tqhostdb-update.service
        ${TQ_GENERATED}/tqhostdb-refresh.service
        ${TQ_PACKAGING}/systemd/tqhostdb-update.timer
        ${TQ_PACKAGING}/systemd/tqhostdb-refresh.timer
        ${TQ_PACKAGING}/systemd/tqhostdb-renew.service
        DESTINATION lib/systemd/system COMPONENT client)
tq_install_papers(client)
tq_install_links(client ${TQ_CLIENT_PROGRAMS})
tq_install_completions(client ${TQ_CLIENT_PROGRAMS})
tq_install_manual_pages(client
    ${TQ_PACKAGING}/man/tqhostdbcmd.8 ${TQ_PACKAGING}/man/tqenroll.8 ${TQ_PACKAGING}/man/kx.conf.5)

# The master server. Its data folder is made with its user, by the package.
install(TARGETS ${TQ_MASTER_PROGRAMS} RUNTIME DESTINATION ${TQ_BIN} COMPONENT master)
install(FILES ${TQ_PACKAGING}/systemd/tqmasterd.service DESTINATION lib/systemd/system COMPONENT master)
install(FILES ${TQ_PACKAGING}/systemd/tqmasterd.sysusers DESTINATION lib/sysusers.d RENAME tqmasterd.conf
        COMPONENT master)
tq_install_papers(master)
tq_install_links(master ${TQ_MASTER_PROGRAMS})
tq_install_completions(master ${TQ_MASTER_PROGRAMS})
tq_install_manual_pages(master ${TQ_PACKAGING}/man/tqmasterd.8)

get_property(papers GLOBAL PROPERTY TQ_PAPERS)
add_custom_target(papers ALL DEPENDS ${papers})
