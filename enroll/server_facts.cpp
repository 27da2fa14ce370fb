#include "enroll/server_facts.h"

#include "enroll/stored_identities.h"
#include "platform/file_io.h"
#include "platform/identity_document.h"
#include "platform/paths.h"
#include "platform/status.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <sys/stat.h>

namespace enroll {

namespace {

/// Status, certificate and token files hold a few kilobytes at most.
constexpr std::size_t FILE_MAX_BYTES = std::size_t{1} << 20U;

constexpr int READS_OF_A_CHANGING_STORE = 3;

/// A file of the system's own.
struct OwnFile {
    bool absent = false;
    std::optional<std::string> text; ///< absent too when the file cannot be read
};

/// Reads a file; one that is there and cannot be read is a problem.
OwnFile readOwnFile(const std::string& path, std::vector<std::string>& problems)
{
    const tq::FileDescriptor file = tq::openOwnFile(path, O_RDONLY, 0, nullptr);
    if (!file && errno == ENOENT)
        return {true, std::nullopt};
    OwnFile read;
    if (file)
        read.text = tq::readRest(file.get(), FILE_MAX_BYTES);
    if (!read.text)
        problems.push_back(path + " cannot be read: " + tq::fileFault(errno));
    return read;
}

/// When a file was last written; absent when there is none, and with a problem when that cannot be told.
std::optional<std::int64_t> readWriteTime(const std::string& path, std::vector<std::string>& problems)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno != ENOENT)
            problems.push_back(path + " cannot be looked at: " + tq::errorText(errno));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        problems.push_back(path + " is not a regular file");
        return std::nullopt;
    }
    return status.st_mtim.tv_sec;
}

std::optional<std::int64_t> readCertificateEnd(const std::string& path, std::vector<std::string>& problems)
{
    const OwnFile file = readOwnFile(path, problems);
    if (file.absent)
        problems.push_back("the certificate " + path + " is missing");
    if (!file.text)
        return std::nullopt;
    const tq::Certificate certificate = tq::parseCertificate(*file.text);
    const std::optional<std::int64_t> end = certificate ? tq::certificateEndTime(*certificate) : std::nullopt;
    if (!end)
        problems.push_back(path + " holds no usable certificate");
    return end;
}

TokenState readTokenState(const std::string& path, std::int64_t now, std::vector<std::string>& problems)
{
    const OwnFile file = readOwnFile(path, problems);
    const std::optional<tq::AccessToken> token = file.text ? tq::parseTokenFile(*file.text) : std::nullopt;
    if (file.text && !token)
        problems.push_back(path + " is damaged, and the next request replaces it");
    return judgeToken(token, now);
}

void readUpdateFiles(ServerFacts& facts)
{
    const std::string ending = "." + facts.server;
    facts.lastAttempt = readWriteTime(TQ_UPDATE_LOCK_BASE + ending, facts.problems);
    facts.lastRecordSent = readWriteTime(TQ_CACHE_FILE_BASE + ending, facts.problems);
    const std::string path = TQ_UPDATE_STATUS_BASE + ending;
    const OwnFile file = readOwnFile(path, facts.problems);
    facts.behind = !file.absent;
    if (!file.text)
        return;
    facts.status = parseUpdateStatus(*file.text);
    if (!facts.status)
        facts.problems.push_back(path + " holds no status, and the next update replaces or removes it");
}

ServerFacts& factsOf(std::vector<ServerFacts>& all, const std::string& server)
{
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const ServerFacts& facts) { return facts.server == server; });
    if (found != all.end())
        return *found;
    all.emplace_back().server = server;
    return all.back();
}

/// As readIdentities(), but removes no leftovers from the store.
std::vector<tq::Identity> lookAtIdentities()
{
    tq::IdentityDocument document;
    std::string cause;
    const int status = tq::readIdentityDocument(document, &cause);
    if (status != EC_success && status != EC_identity_store_missing)
        failStore(cause);
    return document.identities;
}

bool haveSameFiles(const std::vector<tq::Identity>& one, const std::vector<tq::Identity>& other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](const tq::Identity& left, const tq::Identity& right) {
                          return left.certificate == right.certificate;
                      });
}

} // namespace

std::optional<int> parseUpdateStatus(std::string_view text)
{
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    int status = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), status);
    if (fault != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return status;
}

TokenState judgeToken(const std::optional<tq::AccessToken>& token, std::int64_t now)
{
    if (!token)
        return TokenState::none;
    return token->expiresAt > now ? TokenState::valid : TokenState::expired;
}

std::vector<ServerFacts> readServerFacts(const std::vector<tq::Identity>& identities, std::int64_t now)
{
    std::vector<ServerFacts> all;
    for (const tq::Identity& identity : identities) {
        ServerFacts& facts = factsOf(all, identity.server);
        const tq::IdentityFiles files = tq::identityFiles(identity);
        facts.identities.push_back({identity.certType, identity.hostId, identity.hostName,
                                    readCertificateEnd(files.certificate, facts.problems),
                                    readTokenState(files.token, now, facts.problems)});
    }
    for (ServerFacts& facts : all)
        readUpdateFiles(facts);
    return all;
}

std::vector<ServerFacts> readServerFacts(std::int64_t now)
{
    std::vector<tq::Identity> identities = lookAtIdentities();
    for (int reads = 1;; ++reads) {
        std::vector<ServerFacts> facts = readServerFacts(identities, now);
        std::vector<tq::Identity> afterwards = lookAtIdentities();
        if (haveSameFiles(identities, afterwards) || reads == READS_OF_A_CHANGING_STORE)
            return facts;
        identities = std::move(afterwards);
    }
}

} // namespace enroll
