/// The cache file of a master server: whatever stands in it, the next update reads it and heals it.
#include "fuzz/support/json_blocks.h"
#include "fuzz/support/target.h"
#include "hostdb/tqhost_cachehandler.h"
#include "hostinfo/tqclntdb_hostinfo.h"

#include <filesystem>
#include <fstream>

namespace {

using fuzz::require;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::TQHostDBCacheHandler;

const std::string CACHE_BASE = "/tmp/fuzz.cache";
constexpr const char* LOCK_BASE = "/tmp/fuzz.lock";
const std::string SERVER = "master1.example";

CHostInformation localRecord()
{
    CHostInformation record(SERVER, CERT_TYPE_HOST);
    record.hostId = "6f0f0000-0000-4000-8000-000000000001";
    record.hostName = "h1.example";
    record.installedPackages = {"XRVNtqclt_9.1.0.1", "XRVNbrk_1.15.1.0"};
    record.servers = {SERVER};
    return record;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const CHostInformation LOCAL = localRecord();
    const std::string_view text = fuzz::textOf(data, size);
    const fuzz::JsonScope json;
    std::ofstream(CACHE_BASE + '.' + SERVER, std::ios::binary) << text;

    TQHostDBCacheHandler cache(SERVER, CACHE_BASE, LOCK_BASE);
    std::string line;
    require(cache.readCacheFile(line), "a regular file can be opened");
    require(line == text.substr(0, text.find('\n')), "the record is the first line", line);
    cache.isPresentInCache(&LOCAL);
    require(cache.writeCacheFile(&LOCAL), "the cache can be written");
    require(cache.isPresentInCache(&LOCAL), "what was written is present");
    return 0;
}
