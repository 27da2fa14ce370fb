#include "platform/platformname.h"

#include <algorithm>
#include <iterator>

namespace {

struct PlatformName {
    int identifier;
    const char* name; ///< at most 32 bytes: the record has no room for more
};

constexpr int DEBIAN_PLATFORM = 11;

/// Identifiers are part of packages that are in the field: a number is never given to another platform.
constexpr PlatformName PLATFORM_NAMES[] = {
    {1, "aix-7-power"},
    {2, "freebsd-x86_64"},
    {3, "hpux-11-itanium"},
    {4, "hpux-11-parisc"},
    {5, "solaris-10-sparc"},
    {6, "solaris-10-x86_64"},
    {7, "solaris-11-sparc"},
    {8, "solaris-11-x86_64"},
    {9, "linux-rpm-x86"},
    {KQUPDATE_PLATFORM, "linux-rpm-x86_64"},
    {DEBIAN_PLATFORM, "linux-deb-x86_64"},
    {12, "linux-rpm-aarch64"},
    {13, "linux-deb-aarch64"},
    {14, "linux-rpm-ppc64le"},
    {15, "linux-rpm-ppc64"},
    {16, "linux-rpm-s390x"},
    {17, "darwin-x86_64"},
    {18, "darwin-arm64"},
};

const PlatformName* findPlatform(int identifier)
{
    const auto* found =
        std::find_if(std::begin(PLATFORM_NAMES), std::end(PLATFORM_NAMES),
                     [=](const PlatformName& platform) { return platform.identifier == identifier; });
    return found == std::end(PLATFORM_NAMES) ? nullptr : found;
}

} // namespace

const char* getOsHdwName(int identifier)
{
    const PlatformName* platform = findPlatform(identifier);
    return platform ? platform->name : "";
}

bool isValidKqupdateOsHdwNamesIdentifier(int identifier)
{
    return findPlatform(identifier) != nullptr;
}

int getKqupdateOsHdwDebianIdentifier()
{
    return DEBIAN_PLATFORM;
}
