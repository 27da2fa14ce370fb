#include "fileutils/file_utils.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/status.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr const char* CONTEXT = "FileUtils::shredFile";
constexpr int PROGRESS = static_cast<int>(LogLevel::progress);
constexpr int ERROR = static_cast<int>(LogLevel::error);
constexpr int PROGRESS_FLAG = 9;
constexpr int ERROR_FLAG = 0;

/// Writes the whole buffer over the beginning of the file.
void overwrite(std::ostream& file, const std::vector<char>& buffer)
{
    file.seekp(0);
    file.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    file.flush();
}

/// 00, FF, 00, FF, 00.
void overwriteWithFixedPatterns(std::ostream& file, std::vector<char>& buffer)
{
    constexpr int LAST_PASS = 4;
    for (int pass = LAST_PASS; pass >= 0; --pass) {
        std::fill(buffer.begin(), buffer.end(), pass % 2 == 0 ? '\x00' : '\xFF');
        overwrite(file, buffer);
    }
}

/// The generator is deliberately not seeded: the bytes only have to differ from the patterns.
void overwriteWithRandomBytes(std::ostream& file, std::vector<char>& buffer)
{
    std::generate(buffer.begin(), buffer.end(), [] { return static_cast<char>(std::rand() % 128); });
    overwrite(file, buffer);
}

void overwriteWithZeros(std::ostream& file, std::vector<char>& buffer)
{
    std::fill(buffer.begin(), buffer.end(), '\x00');
    overwrite(file, buffer);
}

/// All seven passes over an open file, and its close. Throws when one of them or the memory fails.
void overwriteContents(tq::FileDescriptor opened, std::size_t size)
{
    // A stream over our own descriptor: a stream that opens by name would follow a link.
    __gnu_cxx::stdio_filebuf<char> fileBuffer(opened.get(), std::ios::out | std::ios::binary);
    if (fileBuffer.is_open())
        opened.release();
    std::ostream file(&fileBuffer);
    std::vector<char> buffer(size);
    file.exceptions(std::ios::badbit | std::ios::failbit);

    overwriteWithFixedPatterns(file, buffer);
    overwriteWithRandomBytes(file, buffer);
    overwriteWithZeros(file, buffer);
    if (!fileBuffer.close())
        file.setstate(std::ios::failbit);
}

int removeFile(const char* path)
{
    if (unlink(path) != 0) {
        logmsgvf(ERROR, ERROR_FLAG, CONTEXT, "Failed to unlink file <%s>, with error = <%s>", path,
                 std::strerror(errno));
        return EC_unlink_failed;
    }
    logmsgvf(PROGRESS, PROGRESS_FLAG, CONTEXT, "Exit. status <%d>", EC_success);
    return EC_success;
}

} // namespace

int FileUtils::shredFile(const std::string& path) noexcept
{
    const char* const name = path.c_str();
    try {
        logmsgvf(PROGRESS, PROGRESS_FLAG, CONTEXT, "Received file <%s>", name);

        struct stat attributes {};
        if (const int result = stat(name, &attributes); result != 0) {
            logmsgvf(ERROR, ERROR_FLAG, CONTEXT, "Failed to stat on file <%s>, with error = <%d>", name,
                     result);
            return EC_stat_failed;
        }
        // The size is the one from before the open, which empties the file: the passes write that many bytes.
        tq::FileDescriptor file = tq::openOwnFile(path, O_WRONLY | O_TRUNC, 0, nullptr);
        if (!file) {
            logmsgvf(ERROR, ERROR_FLAG, CONTEXT, "Failed to open file <%s>, with error = <%s>", name,
                     std::strerror(errno));
            return EC_file_open_failed;
        }
        overwriteContents(std::move(file), static_cast<std::size_t>(attributes.st_size));
        return removeFile(name);
    } catch (const std::exception& error) {
        logmsgf(ERROR, CONTEXT, "Failure operating on file <%s>: %s", name, error.what());
        return EC_file_write_failed;
    }
}
