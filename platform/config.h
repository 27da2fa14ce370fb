/// The product configuration kx.conf, as the product's own configuration library offers it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// One entry of the singly linked list of configured servers.
struct TQServerEntry {
    char* serverName;
    TQServerEntry* next;
};

/// What ReadHostConfigExA fills. Made zeroed by the caller, released with FreeHostConfigA.
struct TQHostConfig {
    TQServerEntry* servers; ///< in file order; null when there is none
};

/// The configuration that TQ_read_master_config has read.
struct TQMasterConfig {
    /// Names of the SERVER lines in file order, the first being the master server; absent when there is no
    /// such line. A first name that is refused stands here as an empty text, so that the second server never
    /// becomes the master server unasked; a later one that is refused is left out.
    std::optional<std::vector<std::string>> serverNames;
    /// Values of all other keys by upper-case key; of a key that stands twice the last.
    std::map<std::string, std::string> values;
};

/// How ReadHostConfigExA reads: from this host's own file, asking no other host.
inline constexpr int TQ_CONFIG_LOCAL_ONLY = 1;

/// Reads /usr/torqv/torquenix/kx.conf into `config`. The three integers after it are the product's own
/// and are 0 here. Refused server names are left out, each with a level-16 entry.
/// Returns 0; 12 when the file cannot be opened; 13 when it cannot be read or is larger than 1 MiB; 20 for
/// another mode. The log names the cause of 12 and 13 (level 16), and each line that is skipped as damaged
/// (level 8). Who owns the file and who may write it is the installation's business and not looked at.
int ReadHostConfigExA(int mode, TQHostConfig* config, int reserved1, int reserved2, int reserved3);

/// Releases the list of a configuration and empties it.
void FreeHostConfigA(TQHostConfig* config);

/// Reads the same file as the process-wide configuration. After a failure the previous one stays.
/// Returns 0, 12 or 13 as above.
int TQ_read_master_config();

/// The configuration of the last successful TQ_read_master_config; an empty one before. Never null.
const TQMasterConfig* get_master_config_ptr();

/// Value of a key, without regard to case, as a text that the caller releases with free().
/// Returns 0; non-zero (and `value` untouched) when the key is absent.
int kxconfGetKeyValPair(const TQMasterConfig* config, const char* key, char** value);

/// Value of a key as 1 (YES, TRUE, ON, 1) or 0 (NO, FALSE, OFF, 0), without regard to case.
/// Returns 0; non-zero (and `flag` untouched) when the key is absent or holds another text.
int kxconfGetKeyValPairAsBool(const TQMasterConfig* config, const char* key, int* flag);

/// Writes the install directory "/usr/torqv/" as a terminated text. Returns 0, or 20 when it does not fit.
int getTQInstallDir(char* buffer, int size);

namespace tq {

/// The settings of kx.conf that concern the platform itself.
struct PlatformSettings {
    int debugLogLevel = 2;           ///< DEBUG_LOG_LEVEL: lowest level written (0 to 16)
    int debugLogDays = 28;           ///< DEBUG_LOG_DAYS: days that log files are kept, 0 keeps all (to 36500)
    int webConnectSeconds = 30;      ///< WEB_CONNECT_SECONDS (1 to 3600)
    int webTransferSeconds = 120;    ///< WEB_TRANSFER_SECONDS (1 to 86400)
    int webMaxReplyMegabytes = 1024; ///< WEB_MAX_REPLY_MB (1 to 65536)
};

/// Reads them from kx.conf. A missing file or key leaves the default; a value that is no number within the
/// setting's range leaves the default too, with a level-8 entry.
PlatformSettings readPlatformSettings();

} // namespace tq
