#include "sysinfo/cpu_info.h"

#include "sysinfo/line_value.h"

#include <cstdlib>
#include <optional>
#include <string_view>

namespace SYSINFO_NAMESPACE {
namespace {

/// Where the value of a line that begins with a key stands: behind the first ": " after the key.
std::optional<std::size_t> valueStart(const std::string& line, std::string_view key)
{
    constexpr std::string_view SEPARATOR = ": ";
    if (line.rfind(key, 0) != 0)
        return std::nullopt;
    const std::size_t separator = line.find(SEPARATOR, key.size());
    if (separator == std::string::npos)
        return std::nullopt;
    return separator + SEPARATOR.size();
}

/// Reads an id, decimal or with a prefix for another base; no number at all reads as 0. False, and `id`
/// untouched, when the line's end does not follow at once.
bool readId(const std::string& line, std::size_t start, long& id)
{
    char* end = nullptr;
    const long number = std::strtol(line.c_str() + start, &end, 0);
    if (*end != '\n')
        return false;
    id = number;
    return true;
}

} // namespace

void CpuIdentity::addLine(const std::string& line)
{
    if (contains(line, "model name"))
        return;
    std::string* fact = contains(line, "family")     ? &family
                        : contains(line, "model")    ? &model
                        : contains(line, "stepping") ? &stepping
                                                     : nullptr;
    if (!fact)
        return;
    if (const std::optional<std::string> value = valueAfterLast(':', line))
        *fact = *value;
}

void CpuModelName::addLine(const std::string& line)
{
    if (!contains(line, "model"))
        return;
    if (const std::optional<std::string> value = valueAfterLast(':', line))
        (contains(line, "model name") ? modelName_ : plainModel_) = *value;
}

std::string CpuModelName::text() const
{
    if (!modelName_.empty())
        return withoutLeadingBlanks(modelName_);
    return plainModel_.empty() ? NULL_MARKER : withoutLeadingBlanks(plainModel_);
}

bool CpuTopology::addLine(const std::string& line)
{
    if (valueStart(line, "processor")) {
        ++processors_;
        forgetIds();
        return true;
    }
    bool understood = true;
    if (const auto physical = valueStart(line, "physical id"))
        understood = readId(line, *physical, physicalId_);
    else if (const auto core = valueStart(line, "core id"))
        understood = readId(line, *core, coreId_);
    countPair();
    return understood;
}

void CpuTopology::countPair()
{
    if (physicalId_ < 0 || coreId_ < 0)
        return;
    if (physicalId_ < MAX_SOCKETS) {
        const auto socket = static_cast<std::size_t>(physicalId_);
        sockets_ += socketSeen_[socket] ? 0 : 1;
        socketSeen_.set(socket);
        if (coreId_ < MAX_CORES_PER_SOCKET) {
            const std::size_t core = socket * MAX_CORES_PER_SOCKET + static_cast<std::size_t>(coreId_);
            cores_ += coreSeen_[core] ? 0 : 1;
            coreSeen_.set(core);
        }
    }
    forgetIds();
}

} // namespace SYSINFO_NAMESPACE
