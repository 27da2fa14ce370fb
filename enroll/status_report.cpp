#include "enroll/status_report.h"

#include "enroll/identity_list.h"
#include "enroll/utc_time.h"
#include "platform/json.h"
#include "platform/status.h"

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace enroll {

namespace {

constexpr std::int64_t DAY_SECONDS = 86400;

bool isNearEnd(const IdentityFacts& identity, std::int64_t now)
{
    return !identity.certificateEnd || *identity.certificateEnd - now <= WARNING_DAYS * DAY_SECONDS;
}

const char* tokenWord(TokenState state)
{
    switch (state) {
    case TokenState::valid:
        return "valid";
    case TokenState::expired:
        return "expired";
    case TokenState::none:
        break;
    }
    return "none";
}

std::string describeTime(const std::optional<std::int64_t>& time)
{
    return time ? utcTime(*time) : "never";
}

/// What a server that is behind is behind with.
std::string statusText(const ServerFacts& facts)
{
    return facts.status ? getECmsg(*facts.status) : "The status of the last update cannot be read";
}

std::string describeState(const ServerFacts& facts)
{
    if (!facts.behind)
        return "in step";
    return (facts.status ? "behind with status " + std::to_string(*facts.status) : "behind") + " (" +
           statusText(facts) + ")";
}

std::string describeIdentity(const IdentityFacts& identity, std::int64_t now)
{
    std::string text = std::string(tq::certTypeName(identity.certType)) + " " + identity.hostId +
                       ", certificate ends " + describeEnd(identity.certificateEnd, now);
    if (identity.certificateEnd && *identity.certificateEnd >= now && isNearEnd(identity, now))
        text += " (in " + std::to_string((*identity.certificateEnd - now) / DAY_SECONDS) + " days)";
    return text + ", token " + tokenWord(identity.token);
}

std::string describeServer(const ServerFacts& facts, std::int64_t now)
{
    std::string line = facts.server + ": " + describeState(facts) + "; last record sent " +
                       describeTime(facts.lastRecordSent) + "; last attempt " +
                       describeTime(facts.lastAttempt);
    for (const IdentityFacts& identity : facts.identities)
        line += "; " + describeIdentity(identity, now);
    for (const std::string& problem : facts.problems)
        line += "; " + problem;
    return line + '\n';
}

json_t* timeOrNull(const std::optional<std::int64_t>& time)
{
    return time ? json_integer(*time) : json_null();
}

json_t* identityJson(const IdentityFacts& identity)
{
    return json_pack("{s:s, s:s, s:s, s:o, s:s}", "type", tq::certTypeName(identity.certType), "hostId",
                     identity.hostId.c_str(), "hostName", identity.hostName.c_str(), "certificateEnd",
                     timeOrNull(identity.certificateEnd), "token", tokenWord(identity.token));
}

json_t* serverJson(const ServerFacts& facts)
{
    json_t* identities = json_array();
    for (const IdentityFacts& identity : facts.identities)
        json_array_append_new(identities, identityJson(identity));
    json_t* problems = json_array();
    for (const std::string& problem : facts.problems)
        json_array_append_new(problems, json_string(problem.c_str()));
    return json_pack("{s:s, s:s, s:o, s:o, s:o, s:o, s:o, s:o}", "server", facts.server.c_str(), "state",
                     facts.behind ? "behind" : "inStep", "status",
                     facts.status ? json_integer(*facts.status) : json_null(), "statusText",
                     facts.behind ? json_string(statusText(facts).c_str()) : json_null(), "lastAttempt",
                     timeOrNull(facts.lastAttempt), "lastRecordSent", timeOrNull(facts.lastRecordSent),
                     "identities", identities, "problems", problems);
}

/// A value of a label, in the quotes and with the escapes that the format wants.
std::string labelValue(const std::string& text)
{
    std::string value = "\"";
    for (const char byte : text) {
        if (byte == '\n') {
            value += "\\n";
            continue;
        }
        if (byte == '"' || byte == '\\')
            value += '\\';
        value += byte;
    }
    return value + '"';
}

std::string metricHead(const std::string& name, const std::string& help)
{
    return "# HELP " + name + ' ' + help + "\n# TYPE " + name + " gauge\n";
}

/// A metric with one value for each server that has one.
std::string serverMetric(const std::vector<ServerFacts>& servers, const std::string& name,
                         const std::string& help,
                         const std::function<std::optional<std::int64_t>(const ServerFacts&)>& valueOf)
{
    std::string text = metricHead(name, help);
    for (const ServerFacts& facts : servers) {
        if (const std::optional<std::int64_t> value = valueOf(facts))
            text += name + "{server=" + labelValue(facts.server) + "} " + std::to_string(*value) + '\n';
    }
    return text;
}

std::string certificateMetric(const std::vector<ServerFacts>& servers, std::int64_t now)
{
    const std::string name = "tqhostdb_certificate_end_seconds";
    std::string text =
        metricHead(name, "Seconds until this host's certificate ends, negative once it has ended.");
    for (const ServerFacts& facts : servers) {
        for (const IdentityFacts& identity : facts.identities) {
            if (identity.certificateEnd)
                text += name + "{server=" + labelValue(facts.server) + ",type=\"" +
                        tq::certTypeName(identity.certType) + "\"} " +
                        std::to_string(*identity.certificateEnd - now) + '\n';
        }
    }
    return text;
}

std::optional<std::int64_t> secondsSince(const std::optional<std::int64_t>& time, std::int64_t now)
{
    return time ? std::optional<std::int64_t>(now - *time) : std::nullopt;
}

} // namespace

Verdict judge(const std::vector<ServerFacts>& servers, std::int64_t now)
{
    if (servers.empty())
        return Verdict::noIdentity;
    const bool allWell = std::all_of(servers.begin(), servers.end(), [&](const ServerFacts& facts) {
        return !facts.behind && facts.problems.empty() &&
               std::none_of(facts.identities.begin(), facts.identities.end(),
                            [&](const IdentityFacts& identity) { return isNearEnd(identity, now); });
    });
    return allWell ? Verdict::allWell : Verdict::needsAttention;
}

std::string formatStatusLines(const std::vector<ServerFacts>& servers, std::int64_t now)
{
    if (servers.empty())
        return "This host has no identity; ask the administrator of a master server for an invitation "
               "(tqmasterd invite) and enrol with it.\n";
    std::string text;
    for (const ServerFacts& facts : servers)
        text += describeServer(facts, now);
    return text;
}

std::string formatStatusJson(const std::vector<ServerFacts>& servers)
{
    const tq::JsonRef list(json_array());
    for (const ServerFacts& facts : servers) {
        if (json_array_append_new(list.get(), serverJson(facts)) != 0)
            throw std::runtime_error("the status of server " + facts.server + " cannot be put into JSON");
    }
    const tq::JsonRef document(json_pack("{s:O}", "servers", list.get()));
    const tq::JsonText text(document ? json_dumps(document.get(), 0) : nullptr);
    if (!text)
        throw std::runtime_error("no memory for the status");
    return std::string(text.get()) + '\n';
}

std::string formatStatusMetrics(const std::vector<ServerFacts>& servers, std::int64_t now)
{
    return serverMetric(servers, "tqhostdb_last_attempt_seconds",
                        "Seconds since the last attempt to update the server.",
                        [&](const ServerFacts& facts) { return secondsSince(facts.lastAttempt, now); }) +
           serverMetric(servers, "tqhostdb_last_record_sent_seconds",
                        "Seconds since the last record was sent to the server.",
                        [&](const ServerFacts& facts) { return secondsSince(facts.lastRecordSent, now); }) +
           serverMetric(servers, "tqhostdb_last_status",
                        "Status of the last update of the server, 0 in step, -1 when it cannot be read.",
                        [](const ServerFacts& facts) {
                            return facts.behind ? facts.status.value_or(EC_internal) : EC_success;
                        }) +
           certificateMetric(servers, now);
}

} // namespace enroll
