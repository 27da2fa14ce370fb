/// What was last sent to a master server, so that an unchanged host sends nothing.
#pragma once

#include "platform/lockfile.h"

#include <string>

namespace TQCLNTDB {

class CHostInformation;

/// The cache of one master server: a file of one line, the JSON text of the last record sent, guarded by a
/// lock file for the handler's whole life. The server's name stands in both file names as it was given.
class TQHostDBCacheHandler {
public:
    /// The cache file is `cacheFileBase` + "." + server, its lock `cacheDirectoryBase` + "." + server +
    /// ".lock". Waits for the lock as TQLockFile does (10 tries, 5 ms apart) and goes on without it when it
    /// stays busy: a cache that two runs write at once is at worst one that compares unequal.
    TQHostDBCacheHandler(const std::string& masterServer, const std::string& cacheFileBase,
                         const char* cacheDirectoryBase);

    /// Reads the file's first line, without its line end, into `out`. False, and `out` untouched, when the
    /// file cannot be opened or is larger than OWN_FILE_MAX_BYTES. A line that cannot be read to its end
    /// gives an empty text; an empty text has a level-8 entry with its cause.
    bool readCacheFile(std::string& out);

    /// Whether the cached record equals the local one. False without a usable cache: a line that holds no
    /// record has a level-8 entry with the file's path, and what was read of it compares unequal. The
    /// record's comparison logs the first difference.
    bool isPresentInCache(const CHostInformation* local);

    /// Makes the record just sent the cached one, in place. False when the file cannot be opened for writing;
    /// a failing write or close is logged and leaves a line that will not compare equal.
    bool writeCacheFile(const CHostInformation* record);

private:
    TQLockFile lock_;
    std::string cacheFile_;
};

/// Shreds the cache and lock files that earlier releases left in the product's binary directory: entries
/// named "hostdb.cache..." or "hostdbcache....lock". Each outcome is logged.
void cleanupOldCacheFile();

} // namespace TQCLNTDB
