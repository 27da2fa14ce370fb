/// What the lines of /proc/cpuinfo say about the processors. No file is read here.
#pragma once

#include "sysinfo/system_info.h"

#include <bitset>
#include <string>

namespace SYSINFO_NAMESPACE {

/// Family, model and stepping; of a host with several processors those of the last.
struct CpuIdentity {
    std::string family = NULL_MARKER;
    std::string model = NULL_MARKER;
    std::string stepping = NULL_MARKER;

    void addLine(const std::string& line);
};

/// Name of the processor's model: the last "model name", else the last other "model" line.
class CpuModelName {
public:
    void addLine(const std::string& line);

    /// Without leading blanks; NULL_MARKER when there is neither.
    [[nodiscard]] std::string text() const;

private:
    std::string modelName_;
    std::string plainModel_;
};

/// Counts processors, sockets and cores. A core is a pair of physical and core id; threads that share a pair
/// count once. Ids beyond the limits are dropped without a word.
class CpuTopology {
public:
    /// Lines must come in the file's order. False for an id line whose number is not followed by the line's
    /// end at once; its id then keeps its value.
    bool addLine(const std::string& line);

    [[nodiscard]] long processors() const { return processors_; }
    [[nodiscard]] long sockets() const { return sockets_; }
    [[nodiscard]] long cores() const { return cores_; }

private:
    static constexpr long MAX_SOCKETS = 32;
    static constexpr long MAX_CORES_PER_SOCKET = 16;

    void forgetIds() { physicalId_ = coreId_ = -1; }
    void countPair();

    std::bitset<MAX_SOCKETS> socketSeen_;
    std::bitset<MAX_SOCKETS * MAX_CORES_PER_SOCKET> coreSeen_;
    long processors_ = 0;
    long sockets_ = 0;
    long cores_ = 0;
    long physicalId_ = -1; ///< negative: not known yet
    long coreId_ = -1;     ///< likewise
};

} // namespace SYSINFO_NAMESPACE
