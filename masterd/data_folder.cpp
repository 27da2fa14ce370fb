#include "masterd/data_folder.h"

#include "masterd/settings.h"
#include "masterd/store.h"
#include "platform/file_io.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace masterd {

namespace {

constexpr mode_t FOLDER_MODE = 0700;
constexpr mode_t FILE_MODE = 0600;
constexpr std::size_t PEM_MAX_BYTES = std::size_t{1} << 20;
constexpr const char* CONTEXT = "initDataFolder";

[[noreturn]] void failOn(const std::string& action, const std::string& path)
{
    const int cause = errno;
    throw CommandFailure(EXIT_FAILED, "cannot " + action + ' ' + path + ": " + tq::fileFault(cause));
}

bool exists(const std::string& path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0)
        return true;
    if (errno != ENOENT)
        failOn("look at", path);
    return false;
}

void makeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), FOLDER_MODE) != 0 && errno != EEXIST)
        failOn("make the folder", path);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        failOn("look at", path);
    if (!S_ISDIR(status.st_mode))
        throw CommandFailure(EXIT_FAILED, path + " is not a folder");
}

void writeFile(const std::string& path, const std::string& text)
{
    if (!tq::replaceFile(path, text, FILE_MODE, CONTEXT))
        failOn("write", path);
}

void makeDatabase(const std::string& path)
{
    try {
        Store::create(path);
    } catch (const std::runtime_error& fault) {
        throw CommandFailure(EXIT_FAILED, "cannot make the database " + path + ": " + fault.what());
    }
}

} // namespace

DataFolderHold::DataFolderHold(const DataFolder& folder) : lock_(folder.lockFile(), 1, 0)
{
    if (lock_.fd >= 0)
        return;
    if (!tq::openOwnFile(folder.lockFile(), O_RDWR, 0, nullptr))
        failOn("open", folder.lockFile());
    throw CommandFailure(EXIT_FOLDER_BUSY, "another tqmasterd is using the data folder " + folder.path());
}

Authority initDataFolder(const DataFolder& folder, const std::vector<std::string>& names)
{
    makeFolder(folder.path());
    const DataFolderHold hold(folder);
    if (exists(folder.authorityFile()))
        throw CommandFailure(EXIT_FAILED, folder.path() +
                                              " holds an authority already; the hosts that trust it would "
                                              "be lost with it, so nothing was changed");
    if (chmod(folder.path().c_str(), FOLDER_MODE) != 0)
        failOn("set the mode of", folder.path());
    Authority authority = Authority::create();
    makeDatabase(folder.databaseFile());
    if (!exists(folder.settingsFile()))
        writeFile(folder.settingsFile(), defaultSettingsText());
    writeFile(folder.serverFile(), toPem(authority.issueServerCertificate(names)));
    // Last: an authority in the folder says that everything else is there.
    writeFile(folder.authorityFile(), toPem(authority.own()));
    return authority;
}

KeyAndCertificate loadKeyAndCertificate(const std::string& path)
{
    bool readFailed = false;
    const std::optional<std::string> text = tq::readFile(path, PEM_MAX_BYTES, &readFailed);
    if (!text)
        failOn("read", path);
    try {
        return fromPem(*text);
    } catch (const std::runtime_error& fault) {
        throw CommandFailure(EXIT_FAILED, path + ": " + fault.what());
    }
}

void requireAuthority(const DataFolder& folder)
{
    if (!exists(folder.authorityFile()))
        throw CommandFailure(EXIT_FAILED,
                             folder.path() + " holds no authority; make one with `tqmasterd init`");
}

} // namespace masterd
