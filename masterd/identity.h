/// Who a client is towards this master server.
#pragma once

#include <string>

namespace masterd {

/// The physical host itself, or the cluster's virtual host that it carries.
enum class IdentityType { host, cluster };

/// An identity that the authority has given out. Its certificates name `hostId` and `hostName`.
struct Identity {
    std::string hostId; ///< UUID in lower case, never given to another
    std::string hostName;
    IdentityType type = IdentityType::host;
};

} // namespace masterd
