/// Every path below the install root. They are constants of the build: no environment variable moves them.
#pragma once

#define TQ_INSTALL_ROOT "/usr/torqv"

/// Install directory, with its closing separator: relative paths are appended to it as they are.
inline constexpr const char* TQ_INSTALL_DIR = TQ_INSTALL_ROOT "/";

/// Product directory; the command runner's temporary files are made in it.
inline constexpr const char* TQ_PRODUCT_DIR = TQ_INSTALL_ROOT "/torquenix";
inline constexpr const char* TQ_BIN_DIR = TQ_INSTALL_ROOT "/torquenix/bin";
inline constexpr const char* TQ_CONFIG_FILE = TQ_INSTALL_ROOT "/torquenix/kx.conf";

/// The HTTP client: loaded by its whole path, so that no search path and no environment variable finds
/// another.
inline constexpr const char* TQ_HTTP_MODULE = TQ_INSTALL_ROOT "/torquenix/lib/tqhttp.so";

/// Debug log: directory and the subdirectory that must exist for a log to be written.
inline constexpr const char* TQ_LOG_DIR = TQ_INSTALL_ROOT "/torquenix/logs";
inline constexpr const char* TQ_LOG_SUBDIR = "admin";

/// Message catalogues, as <language>/LC_MESSAGES/<domain>.mo below the directory.
inline constexpr const char* TQ_LOCALE_DIR = TQ_INSTALL_ROOT "/torquenix/share/locale";
inline constexpr const char* TQ_MESSAGE_DOMAIN = "tqhostdb";

/// Product version files: of the server product and of the client's binary directory.
inline constexpr const char* TQ_VERSION_FILE = TQ_INSTALL_ROOT "/torquenix/version";
inline constexpr const char* TQ_BIN_VERSION_FILE = TQ_INSTALL_ROOT "/torquenix/bin/version";

/// Server database; a host without it is a client only.
inline constexpr const char* TQ_SERVER_DB = TQ_INSTALL_ROOT "/db";

/// Parts of the Java package: the runtime and the programs.
inline constexpr const char* TQ_JAVA_BINARY = TQ_INSTALL_ROOT "/java/jre/bin/java";
inline constexpr const char* TQ_JAVA_ARCHIVE = TQ_INSTALL_ROOT "/java/allTQ.jar";

inline constexpr const char* TQ_VAR_DIR = TQ_INSTALL_ROOT "/var";
inline constexpr const char* TQ_IDENTITY_DIR = TQ_INSTALL_ROOT "/var/identity";
inline constexpr const char* TQ_IDENTITY_STORE_FILE = TQ_INSTALL_ROOT "/var/identity/identity.json";
inline constexpr const char* TQ_IDENTITY_LOCK_FILE = TQ_INSTALL_ROOT "/var/identity/identity.lock";
inline constexpr const char* TQ_CLUSTER_STATE_FILE = TQ_INSTALL_ROOT "/var/cluster.state";

/// Beginnings of per-server file names; "." and the server's name follow.
inline constexpr const char* TQ_CACHE_FILE_BASE = TQ_INSTALL_ROOT "/var/hostdb.cache";
inline constexpr const char* TQ_CACHE_LOCK_BASE = TQ_INSTALL_ROOT "/var/hostdbcache";
inline constexpr const char* TQ_UPDATE_LOCK_BASE = TQ_INSTALL_ROOT "/var/hostdbupdate.lock";
inline constexpr const char* TQ_UPDATE_STATUS_BASE = TQ_INSTALL_ROOT "/var/hostdbupdate.status";

/// Port of a master server's web service.
inline constexpr int TQ_WEB_SERVICE_PORT = 1556;
