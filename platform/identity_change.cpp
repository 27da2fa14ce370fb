#include "platform/file_io.h"
#include "platform/identity_document.h"
#include "platform/identity_store.h"
#include "platform/lockfile.h"
#include "platform/paths.h"
#include "platform/random.h"
#include "platform/server_name.h"
#include "platform/stale_files.h"
#include "platform/status.h"

#include <cerrno>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tq {
namespace {

constexpr mode_t FILE_MODE = 0600;

/// How long a change waits for another one to end.
constexpr int LOCK_TRIES = 1000;
constexpr int LOCK_WAIT_MS = 10;

/// Random bytes that tell the files of one enrolment from those of the next.
constexpr std::size_t GENERATION_BYTES = 8;

/// More than the files of an identity and the store's new text take as a rule.
constexpr std::size_t TRIAL_BYTES = std::size_t{64} << 10U;

constexpr std::string_view FILE_ENDINGS[] = {".crt", ".key", ".ca"};

std::string inStore(const std::string& name)
{
    return std::string(TQ_IDENTITY_DIR) + "/" + name;
}

int writeFailure(const std::string& path, std::string* cause)
{
    // replaceFile has written the entry.
    if (cause)
        *cause = "Unable to write " + path + ": " + errorText(errno);
    return EC_file_write_failed;
}

bool startsWithType(std::string_view name)
{
    return name.starts_with("host.") || name.starts_with("cluster.");
}

/// Whether a name is one that tokenFileName makes.
bool isTokenFile(std::string_view name)
{
    return name.starts_with(TOKEN_PREFIX) && startsWithType(name.substr(TOKEN_PREFIX.size()));
}

/// Whether a name is one that nameFiles makes.
bool isGenerationFile(std::string_view name)
{
    if (!startsWithType(name))
        return false;
    for (const std::string_view ending : FILE_ENDINGS) {
        if (name.size() <= ending.size() || name.substr(name.size() - ending.size()) != ending)
            continue;
        const std::string_view stem = name.substr(0, name.size() - ending.size());
        const std::size_t dot = stem.rfind('.');
        return isHexText(stem.substr(dot + 1), GENERATION_BYTES);
    }
    return false;
}

void nameFiles(Identity& identity)
{
    const std::string stem = std::string(certTypeName(identity.certType)) + "." + identity.server + "." +
                             randomHex(GENERATION_BYTES);
    identity.certificate = stem + ".crt";
    identity.privateKey = stem + ".key";
    identity.caCertificates = stem + ".ca";
}

/// All names that the entries of a document hold or stand for, whether they are usable or not.
std::set<std::string> namedFiles(const IdentityDocument& document)
{
    std::set<std::string> names;
    const json_t* entries = identityArray(document);
    for (std::size_t i = 0; i < json_array_size(entries); ++i) {
        const json_t* entry = json_array_get(entries, i);
        for (const char* key : {"certificate", "privateKey", "caCertificates"}) {
            if (const char* name = json_string_value(json_object_get(entry, key)))
                names.insert(name);
        }
        const char* server = json_string_value(json_object_get(entry, "server"));
        const char* type = json_string_value(json_object_get(entry, "certType"));
        if (server && type)
            names.insert(tokenFileName(type, server));
    }
    return names;
}

/// Removes every file of an identity that `kept` does not name: those of `former` names, and those that
/// killed processes left under names that are made here.
void removeFilesBeyond(const std::set<std::string>& kept, std::set<std::string> former)
{
    for (const std::string& name : listDirectory(TQ_IDENTITY_DIR)) {
        if (isGenerationFile(name) || isTokenFile(name))
            former.insert(name);
    }
    for (const std::string& name : former) {
        if (kept.count(name) == 0 && !identityFileFault(name))
            unlink(inStore(name).c_str());
    }
}

/// Takes the entries of a server and type out of a document. Returns where the first stood.
std::optional<std::size_t> takeOut(const IdentityDocument& document, const std::string& server,
                                   cert_type certType)
{
    std::optional<std::size_t> place;
    json_t* entries = identityArray(document);
    for (std::size_t i = json_array_size(entries); i > 0; --i) {
        if (isIdentityEntry(json_array_get(entries, i - 1), server, certType)) {
            json_array_remove(entries, i - 1);
            place = i - 1;
        }
    }
    return place;
}

/// The entry of an identity that still names the files with which it was loaded; null when there is none.
json_t* findEntry(const IdentityDocument& document, const Identity& identity)
{
    const json_t* entries = identityArray(document);
    for (std::size_t i = 0; i < json_array_size(entries); ++i) {
        json_t* entry = json_array_get(entries, i);
        const char* key = json_string_value(json_object_get(entry, "privateKey"));
        if (key && key == identity.privateKey && isIdentityEntry(entry, identity.server, identity.certType))
            return entry;
    }
    return nullptr;
}

int removalFailure(const std::string& path, std::string* cause)
{
    return identityFailure(EC_file_write_failed, "Unable to remove " + path + ": " + errorText(errno), cause);
}

int notStorable(const std::string& why, std::string* cause)
{
    return identityFailure(EC_invalid_argument, "Unable to store an identity: " + why, cause);
}

int outOfMemory(std::string* cause)
{
    return identityFailure(EC_file_write_failed, std::string(TQ_IDENTITY_STORE_FILE) + ": out of memory",
                           cause);
}

int writeDocument(const IdentityDocument& document, std::string* cause)
{
    const JsonText text(json_dumps(document.json.get(), JSON_INDENT(2)));
    if (!text)
        return outOfMemory(cause);
    if (!replaceFile(TQ_IDENTITY_STORE_FILE, std::string(text.get()) + "\n", FILE_MODE, IDENTITY_CONTEXT))
        return writeFailure(TQ_IDENTITY_STORE_FILE, cause);
    return EC_success;
}

int deleteStore(std::string* cause)
{
    if (unlink(TQ_IDENTITY_STORE_FILE) != 0)
        return removalFailure(TQ_IDENTITY_STORE_FILE, cause);
    syncDirectory(TQ_IDENTITY_DIR);
    return EC_success;
}

int writePem(const Identity& identity, const IdentityPem& pem, std::string* cause)
{
    const IdentityFiles files = identityFiles(identity);
    const std::pair<const std::string&, const std::string&> contents[] = {
        {files.privateKey, pem.privateKey},
        {files.certificate, pem.certificate},
        {files.caCertificates, pem.caCertificates},
    };
    for (const auto& [path, text] : contents) {
        if (!replaceFile(path, text, FILE_MODE, IDENTITY_CONTEXT))
            return writeFailure(path, cause);
    }
    return EC_success;
}

/// Writes an identity's files and then the store with its entry at a place of the list.
int writeIdentity(const IdentityDocument& document, std::size_t place, const Identity& identity,
                  const IdentityPem& pem, std::string* cause)
{
    if (json_array_insert_new(identityArray(document), place, identityToJson(identity).release()) != 0)
        return outOfMemory(cause);
    if (const int status = writePem(identity, pem, cause); status != EC_success)
        return status;
    return writeDocument(document, cause);
}

/// Why no identity of a server and type could be read back once it is stored; an empty text for good ones.
std::string whyNotNameable(const Identity& identity)
{
    if (const char* why = serverNameFault(identity.server))
        return std::string("the server's name is refused: ") + why;
    if (*certTypeName(identity.certType) == '\0')
        return "it is neither a host's nor a cluster's";
    return "";
}

/// The same for a whole identity.
std::string whyNotStorable(const Identity& identity, const IdentityPem& pem)
{
    if (std::string why = whyNotNameable(identity); !why.empty())
        return why;
    if (identity.caMode < CA_USAGE_INTERNAL || identity.caMode > CA_USAGE_NONE)
        return "its certificate-authority mode is unknown";
    if (identity.hostId.empty() || identity.hostName.empty())
        return "it has no host identifier or no host name";
    if (pem.certificate.empty() || pem.privateKey.empty() || pem.caCertificates.empty())
        return "its certificate, key or authority is empty";
    return identityToJson(identity) ? "" : "one of its texts is not UTF-8 or holds a NUL";
}

int lockFailure(const TQLockFile& lock, std::string* cause)
{
    const std::string why =
        lock.error == EWOULDBLOCK ? "another change is still running" : fileFault(lock.error);
    return identityFailure(EC_file_write_failed,
                           std::string("Unable to lock ") + TQ_IDENTITY_LOCK_FILE + ": " + why, cause);
}

/// The store, locked for the length of a change, and what it holds.
struct LockedStore {
    TQLockFile lock{TQ_IDENTITY_LOCK_FILE, LOCK_TRIES, LOCK_WAIT_MS};
    IdentityDocument document = newIdentityDocument();

    /// EC_success, EC_identity_store_missing, or why nothing can be changed.
    int read(std::string* cause)
    {
        return lock.fd == -1 ? lockFailure(lock, cause) : readIdentityDocument(document, cause);
    }
};

/// Whether a store that was read so can be written: a missing one begins empty.
bool isWritable(int readStatus)
{
    return readStatus == EC_success || readStatus == EC_identity_store_missing;
}

int makeDirectory(const char* path, mode_t mode, std::string* cause)
{
    if (mkdir(path, mode) == 0 || errno == EEXIST)
        return EC_success;
    return identityFailure(EC_file_write_failed,
                           std::string("Unable to make ") + path + ": " + errorText(errno), cause);
}

} // namespace

int makeIdentityDirectory(std::string* cause)
{
    if (const int status = makeDirectory(TQ_VAR_DIR, 0755, cause); status != EC_success)
        return status;
    if (const int status = makeDirectory(TQ_IDENTITY_DIR, 0700, cause); status != EC_success)
        return status;
    syncDirectory(TQ_INSTALL_DIR);
    syncDirectory(TQ_VAR_DIR);
    return checkIdentityDirectory(cause);
}

int tryIdentityStore(const std::string& server, cert_type certType, std::string* cause)
{
    Identity tried;
    tried.server = server;
    tried.certType = certType;
    if (const std::string why = whyNotNameable(tried); !why.empty())
        return notStorable(why, cause);
    if (const int status = makeIdentityDirectory(cause); status != EC_success)
        return status;
    LockedStore store;
    if (const int status = store.read(cause); !isWritable(status))
        return status;
    nameFiles(tried);
    const std::string path = inStore(tried.privateKey);
    if (!replaceFile(path, std::string(TRIAL_BYTES, '\n'), FILE_MODE, IDENTITY_CONTEXT))
        return writeFailure(path, cause);
    return unlink(path.c_str()) == 0 ? EC_success : removalFailure(path, cause);
}

int saveIdentity(const Identity& identity, const IdentityPem& pem, Identity* stored, std::string* cause)
{
    if (const std::string why = whyNotStorable(identity, pem); !why.empty())
        return notStorable(why, cause);
    if (const int status = makeIdentityDirectory(cause); status != EC_success)
        return status;
    LockedStore store;
    if (const int status = store.read(cause); !isWritable(status))
        return status;

    Identity added = identity;
    nameFiles(added);
    const std::set<std::string> before = namedFiles(store.document);
    const std::size_t place = takeOut(store.document, added.server, added.certType)
                                  .value_or(json_array_size(identityArray(store.document)));
    // An old token, though of the same name, is not kept.
    std::set<std::string> after = namedFiles(store.document);
    after.insert({added.certificate, added.privateKey, added.caCertificates});
    if (const int status = writeIdentity(store.document, place, added, pem, cause); status != EC_success) {
        removeFilesBeyond(before, before);
        return status;
    }
    removeFilesBeyond(after, before);
    if (stored)
        *stored = added;
    return EC_success;
}

int renewIdentity(const Identity& identity, const IdentityPem& pem, Identity* stored, std::string* cause)
{
    if (const std::string why = whyNotStorable(identity, pem); !why.empty())
        return notStorable(why, cause);
    if (const int status = checkIdentityDirectory(cause); status != EC_success)
        return status;
    LockedStore store;
    if (const int status = store.read(cause); status != EC_success)
        return status;
    json_t* entry = findEntry(store.document, identity);
    if (!entry)
        return EC_identity_not_found;

    Identity renewed = identity;
    nameFiles(renewed);
    const std::set<std::string> before = namedFiles(store.document);
    if (json_object_update(entry, identityToJson(renewed).get()) != 0)
        return outOfMemory(cause);
    int status = writePem(renewed, pem, cause);
    if (status == EC_success)
        status = writeDocument(store.document, cause);
    removeFilesBeyond(status == EC_success ? namedFiles(store.document) : before, before);
    if (status == EC_success && stored)
        *stored = renewed;
    return status;
}

int removeIdentity(const std::string& server, cert_type certType, std::string* cause)
{
    if (const int status = checkIdentityDirectory(cause); status != EC_success)
        return status;
    LockedStore store;
    const int readStatus = store.read(cause);
    if (!isWritable(readStatus))
        return readStatus;
    const std::set<std::string> before = namedFiles(store.document);
    if (!takeOut(store.document, server, certType)) {
        removeFilesBeyond(before, before); // an earlier removal may have been killed half-way
        return readStatus == EC_success ? EC_identity_not_found : EC_identity_store_missing;
    }
    const bool empty = json_array_size(identityArray(store.document)) == 0;
    if (const int status = empty ? deleteStore(cause) : writeDocument(store.document, cause);
        status != EC_success)
        return status;
    removeFilesBeyond(namedFiles(store.document), before);
    return EC_success;
}

} // namespace tq
