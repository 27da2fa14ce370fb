/// Status codes of the product, their names and their texts.
#pragma once

#include <span>
#include <string>

/// The product's common status space. Functions return these numbers as plain integers; a value of this
/// type is thrown where a failure is deliberately not to be reported as a number.
enum ec_status : int {
    EC_internal = -1,                   ///< internal failure without a number of its own
    EC_success = 0,                     ///< done
    EC_unlink_failed = 11,              ///< a file could not be removed; a command could not be started
    EC_file_open_failed = 12,           ///< a file could not be opened
    EC_file_read_failed = 13,           ///< a file could not be read, or holds no usable line
    EC_file_write_failed = 14,          ///< a file could not be written
    EC_invalid_argument = 20,           ///< invalid command parameter
    EC_cannot_connect = 25,             ///< name not resolved or connection refused
    EC_invalid_program_name = 36,       ///< the program's base name cannot be formed
    EC_no_master_server = 111,          ///< no master server is configured
    EC_unexpected_reply = 114,          ///< a reply could not be read; unknown exception in an update
    EC_stat_failed = 142,               ///< a file's attributes could not be read
    EC_no_trust_version = 227,          ///< no trust version is recorded
    EC_exit_beyond_byte = 252,          ///< exit status of a status above 255 or below 0
    EC_not_windows_cluster = 1060,      ///< the host is not part of a Windows cluster
    EC_command_not_started = 7247,      ///< a command could not be started
    EC_command_output_lost = 7250,      ///< reading a command's output stopped before its end
    EC_command_too_long = 7281,         ///< a command line is too long
    EC_package_query_failed = 7282,     ///< the package query ended with a failure
    EC_package_list_too_long = 7289,    ///< the list of installed packages is too long
    EC_platform_name_too_long = 7290,   ///< the deployment tool's platform name is too long
    EC_platform_name_invalid = 7291,    ///< the platform identifier names no platform
    EC_no_installed_version = 7500,     ///< no installed version; a web-service failure without a code
    EC_version_file_not_opened = 7501,  ///< a version file or pack summary could not be opened
    EC_identity_store_missing = 7610,   ///< there is no identity store
    EC_identity_store_damaged = 7611,   ///< the identity store is damaged, unreadable or unsafe
    EC_identity_not_found = 7612,       ///< the store has no identity for this server and type
    EC_identity_text_too_long = 7613,   ///< a text of the store is longer than the buffer for it
    EC_web_timeout = 7620,              ///< the web service did not answer in time
    EC_web_not_trusted = 7621,          ///< the connection is not trusted
    EC_web_certificate_refused = 7622,  ///< the own certificate is missing, unusable or was refused
    EC_web_reply_too_large = 7623,      ///< the reply is over the limit
    EC_web_reply_broken = 7624,         ///< the reply was cut off or is not HTTP
    EC_web_no_token = 7625,             ///< no access token is to be had
    EC_web_request_failed = 7626,       ///< the request could not be made
    EC_cluster_manager_missing = 30036, ///< the cluster manager is not installed
};

namespace tq {

/// One row of the status table.
struct StatusText {
    int status;
    const char* name; ///< the enumerator's name without its prefix
    const char* text; ///< English, one sentence without a full stop
};

/// The whole table.
std::span<const StatusText> statusTexts();

/// Text of a number that the table does not hold, with "%d" where the number stands.
inline constexpr const char* UNKNOWN_STATUS_FORMAT = "Unknown status %d";

/// The row of a status; null for a number that the table does not hold.
const StatusText* findStatusText(int status);

} // namespace tq

/// English text of a status. An unknown number has a text that says so. Never empty.
std::string getECmsg(int status);

/// Text of a status in the language of a locale name such as "de_DE.UTF-8", from the message catalogue that
/// the build installs (TQ_LOCALE_DIR), in UTF-8; English for "C", "POSIX", an empty or null name, and where
/// there is no translation. The process's own locale is not changed.
std::string getECmsgl(int status, const char* locale);
