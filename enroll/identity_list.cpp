#include "enroll/identity_list.h"

#include "enroll/utc_time.h"
#include "platform/crypto.h"
#include "platform/file_io.h"

#include <algorithm>
#include <array>

namespace enroll {

namespace {

constexpr std::size_t COLUMNS = 5;
constexpr std::size_t CERTIFICATE_MAX_BYTES = std::size_t{1} << 20U;
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

std::optional<std::int64_t> certificateFileEnd(const std::string& path)
{
    const std::optional<std::string> pem = tq::readFile(path, CERTIFICATE_MAX_BYTES, nullptr);
    const tq::Certificate certificate = pem ? tq::parseCertificate(*pem) : nullptr;
    return certificate ? tq::certificateEndTime(*certificate) : std::nullopt;
}

std::string formatIdentities(const std::vector<tq::Identity>& identities, std::int64_t now)
{
    if (identities.empty())
        return "";
    std::vector<Row> rows = {{"SERVER", "TYPE", "HOST ID", "HOST NAME", "CERTIFICATE ENDS"}};
    for (const tq::Identity& identity : identities) {
        rows.push_back({identity.server, tq::certTypeName(identity.certType), identity.hostId,
                        identity.hostName,
                        describeEnd(certificateFileEnd(tq::identityFiles(identity).certificate), now)});
    }
    return formatRows(rows);
}

} // namespace enroll
