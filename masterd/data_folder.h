/// The folder that holds all a master server keeps.
#pragma once

#include "masterd/authority.h"
#include "platform/lockfile.h"

#include <string>
#include <vector>

namespace masterd {

/// Names inside a data folder. The folder has mode 0700, its files 0600.
class DataFolder {
public:
    explicit DataFolder(std::string path) : path_(std::move(path)) {}

    [[nodiscard]] const std::string& path() const { return path_; }
    /// Key and certificate of the authority. Its presence means that init() came to its end.
    [[nodiscard]] std::string authorityFile() const { return path_ + "/authority.pem"; }
    [[nodiscard]] std::string serverFile() const { return path_ + "/server.pem"; }
    [[nodiscard]] std::string databaseFile() const { return path_ + "/hosts.db"; }
    [[nodiscard]] std::string settingsFile() const { return path_ + "/settings.json"; }
    /// Locked by whoever serves from or makes the folder.
    [[nodiscard]] std::string lockFile() const { return path_ + "/lock"; }

    /// Whether a name in the folder is one of the above, or of what comes and goes beside them: SQLite's logs
    /// and what a killed process left of a file that it was writing.
    [[nodiscard]] bool isOwnName(const std::string& name) const;

private:
    std::string path_;
};

/// Where root calls for a folder that another user owns, turns this process into that user for good: what the
/// commands make in the folder of a service must be the service's, and root's rights are not needed for it.
/// Throws CommandFailure when that cannot be done. For any other caller, or a folder that is absent, it does
/// nothing.
void becomeFolderOwner(const DataFolder& folder);

/// Makes authority, server certificate (for `names`), database and settings, and the folder itself when it is
/// absent. Returns the authority. Throws CommandFailure: when the folder holds an authority already, or
/// anything that is not a data folder's, and then stays as it is; when another process holds it; when a file
/// cannot be made. A run that was cut off is completed by the next one.
Authority initDataFolder(const DataFolder& folder, const std::vector<std::string>& names);

/// Key and certificate of a file. Throws CommandFailure naming the file.
KeyAndCertificate loadKeyAndCertificate(const std::string& path);

/// Throws CommandFailure when the folder holds no authority.
void requireAuthority(const DataFolder& folder);

/// Holds a data folder, for as long as the object lives, against other processes that hold it. Throws
/// CommandFailure (EXIT_FOLDER_BUSY) when one does.
class DataFolderHold {
public:
    explicit DataFolderHold(const DataFolder& folder);

private:
    TQLockFile lock_;
};

} // namespace masterd
