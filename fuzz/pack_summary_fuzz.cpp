/// The summary of installed hotfix bundles.
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include <algorithm>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using fuzz::require;
    fuzz::host() = fuzz::DescribedHost();
    fuzz::host().files["/usr/torqv/pack/pack.summary"] = fuzz::textOf(data, size);

    TQCLNTDB::CHostInformation host;
    require(host.retrieveHFXsInstalled() == 0, "a summary that can be opened can be read");
    const std::vector<std::string>& bundles = host.installedHFXs;
    require(std::adjacent_find(bundles.begin(), bundles.end(), std::greater_equal<>()) == bundles.end(),
            "bundles are in order, each once");
    for (const std::string& name : bundles) {
        require(name.rfind("Torquenix_", 0) == 0 && name.find_first_of(" \n") == std::string::npos,
                "a bundle's name is a word that begins with the product", name);
        require(host.getHFXsVersion(name) > 0x090FFFFF, "a bundle is of this release or a later one", name);
    }
    return 0;
}
