/// Adapter of the HXM cluster manager: asks its command-line tools about the cluster of this host.
#pragma once

#include "clusterinfo/cluster_records.h"
#include "platform/process.h"

#include <cstdio>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace libclusterinfo {

/// One discovery. Every tool runs through popen() and is read line by line, pieces of lines over 1023 bytes
/// counting as lines; every step is traced at this object's depth. Only one command is open at a time. A
/// command that meets a limit of platform/process.h reads as one whose output has ended.
///
/// Results: 0; -1 a command could not be started; 30036 the cluster manager is not installed; IsHXM also
/// hands out the raw result of its presence command or of stat().
class CHxmInfo {
public:
    CHxmInfo() = default;
    CHxmInfo(const CHxmInfo&) = delete;
    CHxmInfo& operator=(const CHxmInfo&) = delete;

    /// fgets() with a trace of the line, or of its end.
    virtual char* my_fgets(char* buffer, int size, FILE* stream);

    /// 0 when the cluster manager is installed and running.
    virtual int IsHXM();

    virtual int getClusterName();

    /// Closes the open command, if any, and starts another.
    virtual int openCommand(const char* command);
    virtual int closeCommand();

    virtual int getClusterIP();

    /// Domain of the host; the whole host name when that has no dot. 0 once its command was started.
    virtual int getDomainName();

    virtual int getClusterSystems();

    /// Names of the resources of type IP.
    virtual int getAllResource();

    /// For each of them but the cluster's own its address and the name that this resolves to.
    virtual int getResource_VirtualInfoMap();

    /// Appends the systems of one resource to `owners`.
    virtual int getSystems(const std::string& resource, std::list<std::string>& owners);

    /// Whether a text has exactly three dots.
    virtual bool isIPV4(const std::string& address);

    /// Official name of an address; empty when it does not resolve or is none.
    virtual std::string getVirtualName(const std::string& address);

    virtual ~CHxmInfo();

    /// The whole discovery. `info` is untouched when the host is no member of an HXM cluster.
    int GetClusterInfo(ClusterInfo& info);

private:
    static constexpr int LINE_SIZE = 1024;
    static constexpr std::size_t COMMAND_SIZE = 1024;

    void setCommand(const char* format, const char* first, const char* second = nullptr);
    bool nextLine();
    bool mayRunWith(const std::string& resource);
    void addResource(const std::string& resource);
    ResourceInfo makeNode(const std::string& system) const;
    VirtualNameInfo makeVirtualName(const VirtualInfo& known, std::list<std::string> owners);
    void setAddress(ResourceInfo& record, const std::string& address);

protected:
    std::map<std::string, VirtualInfo> virtualInfoMap; ///< by resource name
    std::string domainName;
    std::list<std::string> clusterSystems; ///< in the tool's order
    std::set<std::string> ipResources;
    char m_command[COMMAND_SIZE] = {};
    char m_line[LINE_SIZE] = {};
    std::string clusterName;
    std::string clusterIP;
    FILE* m_stream = nullptr;
    std::string homeDirectory;
    int m_depth = 0;
    std::optional<tq::ExternalCommandGuard> m_guard; ///< around the open command
};

/// One discovery with an adapter of its own.
int GetClusterInfo_HXM(ClusterInfo& info);

} // namespace libclusterinfo
