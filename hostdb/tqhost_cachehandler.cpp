#include "hostdb/tqhost_cachehandler.h"

#include "fileutils/file_utils.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/portable.h"

#include <cerrno>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace TQCLNTDB {
namespace {

constexpr int LOCK_TRIES = 10;
constexpr int LOCK_WAIT_MS = 5;

/// Opens the cache file for reading; not open, with the cause in the log, when it is too large to be one.
tq::FileDescriptor openCacheFile(const std::string& path, const char* context)
{
    tq::FileDescriptor file = tq::openOwnFile(path, O_RDONLY, 0, context);
    struct stat attributes {};
    if (file && fstat(file.get(), &attributes) == 0 &&
        attributes.st_size > static_cast<off_t>(tq::OWN_FILE_MAX_BYTES)) {
        LogLine(LogLevel::error, context)
            << "Cache file " << path << " is larger than " << tq::OWN_FILE_MAX_BYTES << " bytes\n";
        file.reset();
    }
    return file;
}

/// Text up to the first line end or the end of the file; absent with errno set when a read fails or the text
/// grows beyond the limit.
std::optional<std::string> readFirstLine(int descriptor)
{
    std::string text;
    char chunk[16384];
    while (text.size() <= tq::OWN_FILE_MAX_BYTES) {
        const ssize_t count = read(descriptor, chunk, sizeof chunk);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        const std::string_view piece(chunk, static_cast<std::size_t>(count));
        text += piece.substr(0, piece.find('\n'));
        if (piece.empty() || piece.find('\n') != std::string_view::npos)
            return text;
    }
    errno = EFBIG;
    return std::nullopt;
}

bool isOldCacheFile(std::string_view name)
{
    constexpr std::string_view CACHE = "hostdb.cache";
    constexpr std::string_view LOCK = "hostdbcache";
    constexpr std::string_view LOCK_ENDING = ".lock";
    return name.starts_with(CACHE) || (name.starts_with(LOCK) && name.ends_with(LOCK_ENDING));
}

void removeOldCacheFile(const char* name, const char* context)
{
    constexpr std::size_t PATH_LIMIT = 8092;
    char path[PATH_LIMIT];
    V_snprintf(path, sizeof path, "%s%s%s", TQ_BIN_DIR, "/", name);
    if (const int status = FileUtils::shredFile(path); status != 0)
        LogLine(LogLevel::progress, context)
            << "Old file [" << path << "] deletion failed with error: " << status << '\n';
    else
        LogLine(LogLevel::progress, context) << "Old file [" << path << "] found. Removed the file.\n";
}

} // namespace

TQHostDBCacheHandler::TQHostDBCacheHandler(const std::string& masterServer, const std::string& cacheFileBase,
                                           const char* cacheDirectoryBase)
    : lock_(cacheDirectoryBase + ("." + masterServer + ".lock"), LOCK_TRIES, LOCK_WAIT_MS),
      cacheFile_(cacheFileBase + "." + masterServer)
{
}

bool TQHostDBCacheHandler::readCacheFile(std::string& out)
{
    constexpr const char* CONTEXT = "TQHostDBCacheHandler::readCacheFile";
    const tq::FileDescriptor file = openCacheFile(cacheFile_, CONTEXT);
    if (!file) {
        LogLine(LogLevel::progress, CONTEXT) << "Unable to open cache file :" << cacheFile_ << '\n';
        return false;
    }
    const std::optional<std::string> line = readFirstLine(file.get());
    if (!line)
        LogLine(LogLevel::warning, CONTEXT)
            << "Unable to read cache file " << cacheFile_ << ": " << tq::errorText(errno) << '\n';
    else if (line->empty())
        LogLine(LogLevel::warning, CONTEXT) << "Cache file " << cacheFile_ << " holds no record\n";
    out = line.value_or("");
    return true;
}

bool TQHostDBCacheHandler::isPresentInCache(const CHostInformation* local)
{
    constexpr const char* CONTEXT = "TQHostDBCacheHandler::isPresentInCache";
    std::string text;
    if (!readCacheFile(text) || text.empty())
        return false;

    CHostInformation cached;
    try {
        // Every record that was sent has its identifier: without one the text is something else.
        if (cached.getHostObj("[" + text + "]") == 0 || cached.hostId.empty())
            LogLine(LogLevel::warning, CONTEXT)
                << "Unable to read host information in cache file " << cacheFile_ << '\n';
    } catch (const std::exception& error) {
        LogLine(LogLevel::warning, CONTEXT)
            << "Unable to read host information in cache file " << cacheFile_ << ": " << error.what() << '\n';
        return false;
    }
    if (!(cached == *local))
        return false;
    LogLine(LogLevel::progress, CONTEXT) << "Cached host information and local host information are same\n";
    return true;
}

bool TQHostDBCacheHandler::writeCacheFile(const CHostInformation* record)
{
    constexpr const char* CONTEXT = "TQHostDBCacheHandler::writeCacheFile";
    const std::string text = record->getJSON(true, false);
    tq::FileDescriptor file = tq::openOwnFile(cacheFile_, O_WRONLY | O_CREAT | O_TRUNC, 0666, CONTEXT);
    // The two blanks in "json  string" stay: support staff search for these lines.
    if (!file) {
        LogLine(LogLevel::error, CONTEXT)
            << "Unable to update json  string :" << text << " to file :" << cacheFile_ << '\n';
        return false;
    }
    LogLine(LogLevel::progress, CONTEXT)
        << "Writing json  string :" << text << " to file :" << cacheFile_ << '\n';
    if (!tq::writeAll(file.get(), text + '\n') || close(file.release()) != 0)
        LogLine(LogLevel::warning, CONTEXT)
            << "Unable to write cache file " << cacheFile_ << ": " << tq::errorText(errno) << '\n';
    return true;
}

void cleanupOldCacheFile()
{
    constexpr const char* CONTEXT = "TQHostDBCacheHandler::cleanupOldCacheFile";
    const tq::DirectoryHandle directory(opendir(TQ_BIN_DIR));
    if (!directory) {
        LogLine(LogLevel::error, CONTEXT) << "Cannot open Torquenix bin directory\n";
        return;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (isOldCacheFile(entry->d_name))
            removeOldCacheFile(entry->d_name, CONTEXT);
    }
}

} // namespace TQCLNTDB
