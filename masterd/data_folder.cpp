#include "masterd/data_folder.h"

#include "masterd/command_failure.h"
#include "masterd/settings.h"
#include "masterd/store.h"
#include "platform/file_io.h"

#include <cerrno>
#include <filesystem>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace masterd {

namespace {

constexpr mode_t FOLDER_MODE = 0700;
constexpr mode_t FILE_MODE = 0600;
constexpr std::size_t PEM_MAX_BYTES = std::size_t{1} << 20;
constexpr const char* CONTEXT = "initDataFolder";

/// `words` turns errno into text.
[[noreturn]] void failOn(const std::string& action, const std::string& path,
                         std::string (*words)(int) = tq::errorText)
{
    const int cause = errno;
    throw CommandFailure(EXIT_FAILED, "cannot " + action + ' ' + path + ": " + words(cause));
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

/// A folder that is somebody else's would lose its mode, and the data folder its privacy.
void requireOwnNamesOnly(const DataFolder& folder)
{
    std::error_code fault;
    std::filesystem::directory_iterator entry(folder.path(), fault);
    for (; !fault && entry != std::filesystem::directory_iterator(); entry.increment(fault)) {
        if (const std::string name = entry->path().filename(); !folder.isOwnName(name))
            throw CommandFailure(EXIT_FAILED, folder.path() + " is in use for something else: it holds \"" +
                                                  name + "\"; nothing was changed");
    }
    if (fault)
        throw CommandFailure(EXIT_FAILED, "cannot read the folder " + folder.path() + ": " + fault.message());
}

/// A run that was cut off may have made it, so the folder above is brought to the disk in any case.
void makeFolder(const DataFolder& folder)
{
    const std::string& path = folder.path();
    if (mkdir(path.c_str(), FOLDER_MODE) != 0) {
        if (errno != EEXIST)
            failOn("make the folder", path);
        struct stat status {};
        if (stat(path.c_str(), &status) != 0)
            failOn("look at", path);
        if (!S_ISDIR(status.st_mode))
            throw CommandFailure(EXIT_FAILED, path + " is not a folder");
        if (!exists(folder.authorityFile()))
            requireOwnNamesOnly(folder);
    }
    if (!tq::syncDirectory(path + "/..") && errno != EACCES) // one that may not be read is another's affair
        failOn("sync the folder above", path);
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

bool DataFolder::isOwnName(const std::string& name) const
{
    const std::string path = path_ + '/' + name;
    const std::string database = databaseFile();
    for (const std::string& own : {authorityFile(), serverFile(), settingsFile(), lockFile(), database,
                                   database + "-wal", database + "-shm", database + "-journal"}) {
        if (path == own)
            return true;
    }
    return name.starts_with(tq::TEMPORARY_PREFIX);
}

DataFolderHold::DataFolderHold(const DataFolder& folder) : lock_(folder.lockFile(), 1, 0)
{
    if (lock_.fd >= 0)
        return;
    if (lock_.error != EWOULDBLOCK) {
        errno = lock_.error;
        failOn("take the lock", folder.lockFile(), tq::fileFault);
    }
    throw CommandFailure(EXIT_FOLDER_BUSY, "another tqmasterd is using the data folder " + folder.path());
}

void becomeFolderOwner(const DataFolder& folder)
{
    struct stat status {};
    if (geteuid() != 0 || stat(folder.path().c_str(), &status) != 0 || status.st_uid == 0)
        return;
    if (setgroups(0, nullptr) != 0 || setresgid(status.st_gid, status.st_gid, status.st_gid) != 0 ||
        setresuid(status.st_uid, status.st_uid, status.st_uid) != 0)
        failOn("become the owner of", folder.path());
}

Authority initDataFolder(const DataFolder& folder, const std::vector<std::string>& names)
{
    makeFolder(folder);
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
    const std::optional<std::string> text = tq::readFile(path, PEM_MAX_BYTES, nullptr);
    if (!text)
        failOn("read", path, tq::fileFault);
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
