#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/platformname.h"
#include "platform/status.h"
#include "utils/tqclntdb_utils_real.h"

namespace TQCLNTDB {
namespace {

/// Longest platform name that is kept, in bytes.
constexpr std::size_t MAX_PLATFORM_LENGTH = 32;

} // namespace

int CHostInformation::retrieveKqUpdatePlatform()
{
    constexpr const char* CONTEXT = "CHostInformation::retrieveKqUpdatePlatform";
    int result = EC_success;
    kqUpdatePlatform.clear();
    if (T::isDebianUbuntu()) {
        kqUpdatePlatform = T::getOsHdwName(getKqupdateOsHdwDebianIdentifier());
    } else if (T::isValidKqupdateOsHdwNamesIdentifier(KQUPDATE_PLATFORM)) {
        kqUpdatePlatform = T::getOsHdwName(KQUPDATE_PLATFORM);
    } else {
        LogLine(LogLevel::error, CONTEXT)
            << "KQUPDATE_PLATFORM value [" << KQUPDATE_PLATFORM << "] is not a valid platform "
            << "identifier. Setting KqUpdate platform value to empty string.";
        result = EC_platform_name_invalid;
    }
    if (kqUpdatePlatform.size() > MAX_PLATFORM_LENGTH) {
        LogLine(LogLevel::error, CONTEXT)
            << "KqUpdate platform value [" << kqUpdatePlatform << "] exceeds the max allowed length of "
            << MAX_PLATFORM_LENGTH << ". Setting value to empty string.";
        kqUpdatePlatform.clear();
        result = EC_platform_name_too_long;
    }
    LogLine(LogLevel::progress, CONTEXT) << "KqUpdate platform set to : [" << kqUpdatePlatform << "]";
    return result;
}

} // namespace TQCLNTDB
