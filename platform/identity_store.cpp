#include "platform/identity_store.h"

#include "platform/debuglog.h"
#include "platform/file_io.h"
#include "platform/identity_document.h"
#include "platform/paths.h"
#include "platform/status.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tq {
namespace {

/// Why a directory or file is not this user's alone; an empty text when it is.
std::string ownerFault(const struct stat& status)
{
    if (status.st_uid != geteuid())
        return "it belongs to another user (" + std::to_string(status.st_uid) + ")";
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        std::array<char, 8> mode{};
        std::snprintf(mode.data(), mode.size(), "%04o", static_cast<unsigned>(status.st_mode & 07777U));
        return std::string("other users have rights on it (mode ") + mode.data() + ")";
    }
    return "";
}

std::string directoryFault(const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        return "it is a symbolic link";
    if (!S_ISDIR(status.st_mode))
        return "it is not a directory";
    return ownerFault(status);
}

/// Text of the store's file. Returns 0, 7610 or 7611.
int readStoreText(std::string& text, std::string* cause)
{
    const auto failed = [&](const std::string& why) {
        return identityFailure(EC_identity_store_damaged, std::string(TQ_IDENTITY_STORE_FILE) + ": " + why,
                               cause);
    };
    const FileDescriptor file = openOwnFile(TQ_IDENTITY_STORE_FILE, O_RDONLY, 0, nullptr);
    if (!file)
        return errno == ENOENT ? EC_identity_store_missing : failed(fileFault(errno));
    struct stat status {};
    if (fstat(file.get(), &status) != 0)
        return failed(errorText(errno));
    if (const std::string why = ownerFault(status); !why.empty())
        return failed(why);
    std::optional<std::string> read = readRest(file.get(), OWN_FILE_MAX_BYTES);
    if (!read)
        return failed(fileFault(errno));
    text = std::move(*read);
    return EC_success;
}

} // namespace

int identityFailure(int status, const std::string& words, std::string* cause)
{
    LogLine(LogLevel::error, IDENTITY_CONTEXT) << words;
    if (cause)
        *cause = words;
    return status;
}

int checkIdentityDirectory(std::string* cause)
{
    struct stat status {};
    std::string why;
    if (lstat(TQ_IDENTITY_DIR, &status) == 0)
        why = directoryFault(status);
    else if (errno == ENOENT)
        return EC_identity_store_missing;
    else
        why = errorText(errno);
    if (why.empty())
        return EC_success;
    return identityFailure(EC_identity_store_damaged, std::string(TQ_IDENTITY_DIR) + ": " + why, cause);
}

int readIdentityDocument(IdentityDocument& document, std::string* cause)
{
    if (const int status = checkIdentityDirectory(cause); status != EC_success)
        return status;
    std::string text;
    if (const int status = readStoreText(text, cause); status != EC_success)
        return status;
    std::string fault;
    if (!parseIdentityDocument(text, document, fault))
        return identityFailure(EC_identity_store_damaged, std::string(TQ_IDENTITY_STORE_FILE) + ": " + fault,
                               cause);
    for (const std::string& entry : document.leftOut)
        LogLine(LogLevel::error, IDENTITY_CONTEXT) << TQ_IDENTITY_STORE_FILE << ": " << entry;
    return EC_success;
}

int loadIdentityStore(std::vector<Identity>& identities, std::string* cause)
{
    IdentityDocument document;
    const int status = readIdentityDocument(document, cause);
    if (status != EC_success)
        return status;
    identities = std::move(document.identities);
    removeStaleTemporaries(TQ_IDENTITY_DIR); // an update that sends nothing writes nothing here either
    return EC_success;
}

const Identity* findIdentity(const std::vector<Identity>& identities, const std::string& server,
                             cert_type certType)
{
    const auto found = std::find_if(identities.begin(), identities.end(), [&](const Identity& identity) {
        return identity.certType == certType && strcasecmp(identity.server.c_str(), server.c_str()) == 0;
    });
    return found == identities.end() ? nullptr : &*found;
}

bool isReplaced(const Identity& identity)
{
    std::vector<Identity> identities;
    const int status = loadIdentityStore(identities);
    if (status != EC_success && status != EC_identity_store_missing)
        return false;
    const Identity* now = findIdentity(identities, identity.server, identity.certType);
    return now == nullptr || now->certificate != identity.certificate;
}

IdentityFiles identityFiles(const Identity& identity)
{
    const std::string directory = std::string(TQ_IDENTITY_DIR) + "/";
    return {directory + identity.certificate, directory + identity.privateKey,
            directory + identity.caCertificates,
            directory + tokenFileName(certTypeName(identity.certType), identity.server)};
}

const char* certTypeName(cert_type certType)
{
    switch (certType) {
    case CERT_TYPE_HOST:
        return "host";
    case CERT_TYPE_CLUSTER:
        return "cluster";
    case CERT_TYPE_NONE:
        break;
    }
    return "";
}

} // namespace tq
