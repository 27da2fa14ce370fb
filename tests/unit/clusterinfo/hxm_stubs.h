/// The cluster manager's tools as the tests' own scripts, and the trace of a discovery.
#pragma once

#include "clusterinfo/hxm_info.h"
#include "clusterinfo/trace.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/unit/clusterinfo/faked_network.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace hxm {

inline const std::filesystem::path BIN = "/opt/XRVNhxm/bin";
inline const std::filesystem::path STUB_PATH = "/tmp/stub-path";

inline std::vector<std::string> traced;

/// Puts a script there under a name; every run appends its arguments to /tmp/runs.
inline void tool(const std::filesystem::path& folder, const std::string& name, const std::string& body)
{
    std::filesystem::create_directories(folder);
    const std::filesystem::path path = folder / name;
    std::ofstream(path) << "#!/bin/sh\necho \"" << name << " $*\" >>/tmp/runs\n" << body << '\n';
    std::filesystem::permissions(path, std::filesystem::perms(0755));
}

inline std::vector<std::string> runs()
{
    std::ifstream file("/tmp/runs");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

/// Opens what the adapter keeps to itself.
class Adapter : public libclusterinfo::CHxmInfo {
public:
    using CHxmInfo::clusterIP;
    using CHxmInfo::clusterName;
    using CHxmInfo::clusterSystems;
    using CHxmInfo::domainName;
    using CHxmInfo::ipResources;
    using CHxmInfo::virtualInfoMap;

    /// Where each field stands, in the order in which they are listed.
    [[nodiscard]] std::vector<const void*> fields() const
    {
        return {&virtualInfoMap, &domainName, &clusterSystems, &ipResources,   &m_command, &m_line,
                &clusterName,    &clusterIP,  &m_stream,       &homeDirectory, &m_depth,   &m_guard};
    }
};

/// A fresh machine: no cluster manager, a `hostname` that prints node1.example, addresses without names.
class HxmTest : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        faked_network::reset();
        std::filesystem::remove_all("/opt/XRVNhxm");
        std::filesystem::remove_all(STUB_PATH);
        std::filesystem::remove("/tmp/runs");
        setenv("PATH", (STUB_PATH.string() + ":/usr/bin:/bin").c_str(), 1);
        tool(STUB_PATH, "hostname", "echo node1.example");
        traced.clear();
        libclusterinfo::SetTraceFunc([](const char* line) { traced.emplace_back(line); });
    }
    void TearDown() override { libclusterinfo::SetTraceFunc(nullptr); }

    /// A running cluster "clu" at 192.0.2.1 of node1 and node2 with the address resources of `resources`.
    static void installManager(const std::string& resources = "")
    {
        tool(BIN, "hxstatus", "exit 0");
        tool(BIN, "hxclus", "case $2 in ClusterName) echo clu;; ClusterAddress) echo 192.0.2.1;; esac");
        tool(BIN, "hxsys", "printf 'node1\\nnode2\\n'");
        tool(BIN, "hxres", resources);
    }

    /// Whether a line, indentation and all, was traced.
    static bool wasTraced(const std::string& line)
    {
        return std::find(traced.begin(), traced.end(), line) != traced.end();
    }

    /// Whether a line was traced at whatever level.
    static bool wasTracedSomewhere(const std::string& text)
    {
        return std::any_of(traced.begin(), traced.end(), [&](const std::string& line) {
            const std::size_t start = line.find_first_not_of(' ');
            return start != std::string::npos && line.substr(start) == text;
        });
    }
};

} // namespace hxm
