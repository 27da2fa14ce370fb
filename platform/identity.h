/// This host's identities towards its master servers, as the product's identity library offers them.
#pragma once

#include "platform/types.h"

/// Certificate-authority modes of getCAModeByServer.
enum ca_usage : int {
    CA_USAGE_INTERNAL = 1, ///< the master server's own authority
    CA_USAGE_EXTERNAL = 2, ///< another authority
    CA_USAGE_NONE = 3,     ///< no usable authority
};

/// Host identifier (a UUID) of the identity for a server and type, written as a terminated text.
/// Returns 0; 7610 no store; 7611 the store is damaged, unreadable or in an unsafe directory (the log names
/// the cause); 7612 no such identity; 7613 the text does not fit. The buffer is touched on success only.
int getHostID(cert_type certType, const char* server, char* buffer, int size);

/// Trust version of the identity for a server and type. As getHostID, and 227 when none is recorded.
int getTrustVersion(cert_type certType, const char* server, char* buffer, int size);

/// Names of the servers that have an identity of this type, in the order of the store. `servers` becomes an
/// array allocated with malloc() of `count` texts allocated with malloc(), all released by the caller; null
/// for none. `flags` is the product's own and is 0 here.
/// Returns 0 (also for a store without an identity of this type, with count 0); 7610 or 7611 as getHostID.
int getServersFromMapInfo(cert_type certType, int* count, char*** servers, int flags);

/// Certificate-authority mode (`ca_usage`) of the identity for a server and type.
/// Returns 0, or 7610, 7611 or 7612 as getHostID; `mode` is touched on success only.
int getCAModeByServer(cert_type certType, const char* server, int* mode);

/// "internal", "external", "none"; "unknown" for any other number.
const char* CaUsageToString(int mode);
