/// A host for tests of everything above the record: fixed system facts, an identity, two configured servers,
/// and none of the system's own files.
#pragma once

#include "platform/paths.h"
#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"
#include "tests/fakes/sysinfo/fake_sysinfo.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace test_host {

inline constexpr const char* HOST_ID = "6f0f0000-0000-4000-8000-000000000001";

inline void reset()
{
    fakes::reset();
    fakes::resetSeams();
    fakes::resetSysinfo();
    fakes::platform().configuredServers = {"m1", "m2"};
    SYSINFO_NAMESPACE::TquClientSystemData& facts = fakes::sysinfo().record;
    facts.osName = "Linux";
    facts.osVersion = "6.1.0";
    facts.vendorName = "Acme";
    facts.modelName = "Box";
    facts.cpuType = "X86_64";
    facts.tquClientName = "h1.example";
    facts.processorCount = 2;
    for (const char* directory : {TQ_VAR_DIR, TQ_BIN_DIR}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::remove_all(entry.path());
    }
}

inline std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void write(const std::filesystem::path& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace test_host
