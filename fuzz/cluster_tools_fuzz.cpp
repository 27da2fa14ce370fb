/// Outputs of the cluster manager's tools. The first part of an input is the name that every address resolves
/// to, the others are the outputs in the order of the commands.
#include "clusterinfo/cluster_discovery.h"
#include "clusterinfo/cluster_json.h"
#include "clusterinfo/hxm_info.h"
#include "clusterinfo/trace.h"
#include "fuzz/support/described_host.h"
#include "fuzz/support/target.h"

#include <algorithm>

namespace {

using fuzz::require;
using namespace libclusterinfo;

/// The adapter on tools that are texts: nothing is started and no name server asked.
class DescribedCluster : public CHxmInfo {
public:
    explicit DescribedCluster(std::string_view resolvedName) : resolvedName_(resolvedName) {}
    ~DescribedCluster() override { DescribedCluster::closeCommand(); }

    int IsHXM() override
    {
        homeDirectory = "/opt/XRVNhxm/bin/";
        return 0;
    }

    int openCommand(const char* command) override
    {
        closeCommand();
        requirePlainCommand(command);
        output_ = fuzz::run(command).text;
        m_stream =
            output_.empty() ? std::fopen("/dev/null", "re") : fmemopen(output_.data(), output_.size(), "r");
        return 0;
    }

    int closeCommand() override
    {
        if (m_stream)
            std::fclose(m_stream);
        m_stream = nullptr;
        return 0;
    }

    std::string getVirtualName(const std::string& /*address*/) override { return resolvedName_; }

private:
    /// No name of a resource is more to the shell than a word.
    static void requirePlainCommand(std::string_view command)
    {
        require(std::count(command.begin(), command.end(), '"') <= 2 &&
                    command.find_first_of("|&;<>()$`\\'*?[]#~!{}\n\t") == std::string_view::npos,
                "a command holds plain words", command);
    }

    std::string resolvedName_;
    std::string output_;
};

void ignoreTrace(const char* /*line*/) {}

void checkNames(const ClusterInfo& cluster)
{
    for (const ResourceInfo& node : cluster.nodeList)
        require(node.name.find('\n') == std::string::npos && node.name.size() < 1024,
                "a node's name is a line", node.name);
    for (const VirtualNameInfo& name : cluster.virtualInfoList) {
        require(name.ipv4.empty() || name.ipv6.empty(), "a virtual name has one address");
        for (const std::string& owner : name.ownerList)
            require(!owner.empty() && owner.find_first_of(" \t\n#") == std::string::npos,
                    "an owner is a word", owner);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = fuzz::textOf(data, size);
    const std::size_t end = text.find(fuzz::Parts::SEPARATOR);
    fuzz::describeOutputs(end == std::string_view::npos ? "" : text.substr(end + 1));
    SetTraceFunc(ignoreTrace);

    ClusterInfo cluster;
    require(DescribedCluster(text.substr(0, end)).GetClusterInfo(cluster) == 0,
            "the discovery comes to its end");
    checkNames(cluster);
    std::string json;
    ClusterInfoToJson(cluster, json);
    require(fuzz::isJson(json), "a cluster is written as JSON", json);
    // The node's view needs this host's name, which is the machine's: the first node gives it here.
    ClusterNodeInfo node;
    if (!cluster.nodeList.empty())
        node.node = cluster.nodeList.front();
    node.cluster = cluster.cluster;
    node.virtualInfoList = cluster.virtualInfoList;
    NodeInfoToJson(node, json);
    require(fuzz::isJson(json), "a node's view is written as JSON", json);
    require(GetClusterNodeInfo(cluster, node) == 0, "a host that is no member is no failure");
    return 0;
}
