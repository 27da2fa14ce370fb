/// The host information record: what a host tells a master server's host database about itself.
#pragma once

#include "hostdb/tqclntdb_json.h"
#include "platform/types.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace SYSINFO_NAMESPACE {
struct TquClientSystemData;
}

namespace TQCLNTDB {

/// One host. Copies are deep. Collectors return 0 or a product status; their log context is their own
/// qualified name.
class CHostInformation {
public:
    CHostInformation() = default;
    CHostInformation(const std::string& server, cert_type type);

    std::string hostName;         ///< client name, as the system probes report it
    std::string hostId;           ///< identifier (a UUID) towards `masterServer`
    std::string masterServer;     ///< the server that this record is meant for
    std::string osType;           ///< "UNIX"
    std::string osVersion;        ///< operating system's name with the kernel's version in parentheses
    std::string osReleaseVersion; ///< distribution's release, at most 8 bytes
    std::vector<std::string> installedHFXs;     ///< hotfix bundles
    std::vector<std::string> installedPackages; ///< product packages
    std::string kqUpdatePlatform;               ///< deployment tool's platform name, at most 32 bytes
    std::string hwDescription;                  ///< vendor, model and CPU count in one line
    std::string cpuArchitecture;
    std::string tquVersion;                      ///< installed product version
    bool isSecureEnabled = false;                ///< set by every successful load
    std::vector<std::string> servers;            ///< server entries of the product configuration
    std::vector<std::string> clusterSharedNames; ///< virtual host names of the host's cluster
    cert_type certType = CERT_TYPE_NONE;         ///< identity that the record is built for; never sent
    std::string trustVersion;
    std::string machineType;    ///< "PHYSICAL", "VIRTUAL" or "UNKNOWN"
    std::string hypervisorType; ///< name, or "NONE"
    std::string machineTquType; ///< MACHINE_TQU_TYPE of the configuration; often empty

    /// Compact JSON text. `withIdentity` adds the host's name and its identifier, the latter under "hostId"
    /// when `useHostIdKey`, else under "uuid". Lists of hotfixes and packages travel as one comma-joined
    /// text.
    std::string getJSON(bool withIdentity, bool useHostIdKey) const;

    /// Fills this record from record `index` of a reply that the converter holds. Always 1; missing and
    /// mistyped keys leave their field and are logged by the converter. Deliberately, a record with hotfixes
    /// whose packages are missing or mistyped takes the hotfixes for its packages. An empty text leaves
    /// either list. Throws std::logic_error when an entry of "servers" or "clusterSharedNames" is not a
    /// string: the fields from `hostName` to `tquVersion` are then filled, and `servers` when it was read
    /// whole; the others are as they were.
    int getHostObj(JSONConverter& converter, std::size_t index);

    /// Fills this record from record 0 of a text (the caller has wrapped an object in brackets). 1, or 0 when
    /// the text does not load; the record is then unchanged. Never reads "osReleaseVersion". Throws as above.
    int getHostObj(const std::string& text);

    /// Whether two records describe the same host in the same state; writes the first difference to the log.
    /// osReleaseVersion, certType and clusterSharedNames deliberately do not count.
    bool operator==(const CHostInformation& other) const;

    /// Replaces the argument with a copy of `installedPackages`.
    void getInstalledPackages(std::vector<std::string>& out) const;

    /// Entries each followed by `separator`, less the longest tail made of characters of `separator`.
    static std::string SeparateStringValuesByTok(const std::vector<std::string>& list,
                                                 const std::string& separator);

    /// Pieces between separators, empty ones included; always at least one.
    static std::vector<std::string> stringToVector(const std::string& text, char separator);

    /// Entries joined with ", ".
    static std::string vectorToString(const std::vector<std::string>& list);

    /// Text without leading and trailing characters of `set`. A text of nothing else is returned unchanged.
    static std::string trimLR(std::string text, std::string set);

    /// Fills the record from the local host. Meant for a fresh record: some fields are appended to.
    /// Returns 0 or the status of the first step whose failure ends the load; fields written so far stay.
    /// Throws std::out_of_range when a release file's line ends right at its key.
    int loadHostConfig();

    /// Servers and installed version from the product configuration. Returns 0, 12 or 13.
    int loadHostInfoFromKXConf();

    /// Value of MACHINE_TQU_TYPE; `out` is untouched when the key is absent. Returns 0, 12 or 13.
    int getMachineTquType(std::string& out);

    /// Deployment tool's platform name. Returns 0; 7290 name too long; 7291 no such platform (both leave the
    /// field empty).
    int retrieveKqUpdatePlatform();

    /// Identifier towards `masterServer` from the identity store. Returns 0 or a status of getHostID.
    int loadUUIDFromHostConfig();

    /// Trust version towards `masterServer`; empty and 0 when none is recorded. Else a status of
    /// getTrustVersion.
    int loadTrustVersionFromHostConfig();

    /// Hotfix bundles of this release and later ones that the pack summary lists, sorted, each once, appended
    /// to `installedHFXs`. No summary means none; one over 16 MiB is read up to there. Returns 0, the status
    /// of getTQInstallDir, or 7501 when the summary exists but cannot be opened.
    int retrieveHFXsInstalled();

    /// Release number that a bundle name carries ((p0 & 127) << 24 | (p1 & 15) << 20 | (p2 & 15) << 16 | p3);
    /// -1 when it carries none. Throws std::out_of_range for a name of fewer than ten characters.
    std::int32_t getHFXsVersion(const std::string& name) const;

    /// The product's own packages, each as name, "_", version, appended to `installedPackages`. Waits for the
    /// package query. Returns the listing's status; 7289, and no packages, when the list joined with commas
    /// is longer than 2048 bytes.
    int retrieveInstalledPackages();

    /// On hosts of the Debian family fixed names with the installed version, on others what rpm lists.
    /// Returns 0; 7282 when the query ends with a failure; or the status of run_command_and_capture_output.
    int retrieveInstalledPackagesLinux();

    /// The same on other Unix systems, in two stages: names, then each one's version. Not called by this
    /// build's retrieveInstalledPackages. Results as above. Without a system it is the one that this was
    /// built for, AIX or else HP-UX.
    enum class OtherUnix { aix, hpux };
    int retrieveInstalledPackagesSolaris();
    int retrieveInstalledPackagesAixHP();
    int retrieveInstalledPackagesAixHP(OtherUnix system);

    /// 1 when DISABLE_CLUSTER_AUTO_DISCOVERY says so, 0 when it does not, is absent or cannot be read.
    int isClusterAutoDiscoveryDisabled();

    /// Appends the names that this host shares with its cluster to `clusterSharedNames`. Waits for the
    /// cluster manager's tools. Returns 0; 1060 or 30036 for a host in no cluster; or another status of the
    /// discovery.
    int retrieveClusterSharedNames();

    /// The same, with an entry about its outcome.
    int loadSharedNames();

    // Of a release file, whatever its size, the first 16 MiB are read, and a read error ends it. Only what is
    // no regular file, or cannot be opened, has no lines at all.

    /// Display name of an os-release style file: its first line holding PRETTY_NAME. Empty when the file
    /// cannot be opened or has no such line. Throws std::out_of_range when that line ends at the key.
    std::string getOSName(const std::string& path) const;

    /// Release of an os-release style file: its last line holding VERSION_ID, without the build number, for
    /// example "8.4". "Unknown" when the file cannot be opened or has no such line. Throws as above.
    std::string getOSReleaseVersionFromId(const std::string& path) const;

    /// Release of a one-line release file: the word after "release" in the last line that holds it.
    /// "Unknown" as above. Throws as above.
    std::string getOSReleaseVersionFromString(const std::string& path) const;

    /// A version of three or more parts without its last five characters, any other unchanged.
    std::string getOSReleaseVersionWithoutBuildNo(const std::string& version) const;

private:
    void setOperatingSystem(const SYSINFO_NAMESPACE::TquClientSystemData& system);
    void setHardware(const SYSINFO_NAMESPACE::TquClientSystemData& system);
    void setMachine(const SYSINFO_NAMESPACE::TquClientSystemData& system);
    void discoverSharedNames();
    void storeHFXs(std::vector<std::string> bundles);
    int listRpmPackages();
    void listDebianPackages();
};

/// Sink of the cluster discovery's trace: writes the line to the log under the context
/// "libclusterinfo::trace".
void libClusterInfoTrace(const char* message);

/// Writes getJSON(true, true) and nothing else.
std::ostream& operator<<(std::ostream& stream, const CHostInformation& record);

} // namespace TQCLNTDB
