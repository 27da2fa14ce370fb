#include "enroll/identity_list.h"

#include "enroll/stored_identities.h"
#include "enroll/utc_time.h"

#include <algorithm>
#include <array>

namespace enroll {

namespace {

constexpr std::size_t COLUMNS = 5;
using Row = std::array<std::string, COLUMNS>;

std::string formatRows(const std::vector<Row>& rows)
{
    std::array<std::size_t, COLUMNS> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < COLUMNS; ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < COLUMNS; ++i)
            text += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        text += row.back() + '\n';
    }
    return text;
}

} // namespace

std::string describeEnd(std::optional<std::int64_t> end, std::int64_t now)
{
    if (!end)
        return "unknown";
    return utcTime(*end) + (*end < now ? " (ended)" : "");
}

std::string describeEndOf(const tq::Identity& identity, std::int64_t now)
{
    const tq::Certificate certificate = readCertificateFile(tq::identityFiles(identity).certificate);
    return describeEnd(certificate ? tq::certificateEndTime(*certificate) : std::nullopt, now);
}

std::string formatIdentities(const std::vector<tq::Identity>& identities, std::int64_t now)
{
    if (identities.empty())
        return "";
    std::vector<Row> rows = {{"SERVER", "TYPE", "HOST ID", "HOST NAME", "CERTIFICATE ENDS"}};
    for (const tq::Identity& identity : identities) {
        rows.push_back({identity.server, tq::certTypeName(identity.certType), identity.hostId,
                        identity.hostName, describeEndOf(identity, now)});
    }
    return formatRows(rows);
}

} // namespace enroll
