#include "platform/identity_document.h"

#include "platform/server_name.h"

#include <cstring>
#include <iterator>
#include <strings.h>
#include <utility>

namespace tq {
namespace {

constexpr json_int_t STORE_VERSION = 1;

/// Characters of a refused name that its log entry shows.
constexpr std::size_t SHOWN_CHARACTERS = 253;

struct TextKey {
    const char* key;
    std::string Identity::*member;
};

constexpr TextKey TEXT_KEYS[] = {
    {"server", &Identity::server},         {"hostId", &Identity::hostId},
    {"hostName", &Identity::hostName},     {"certificate", &Identity::certificate},
    {"privateKey", &Identity::privateKey}, {"caCertificates", &Identity::caCertificates},
};

constexpr std::string Identity::*FILE_NAMES[] = {&Identity::certificate, &Identity::privateKey,
                                                 &Identity::caCertificates};

constexpr cert_type CERT_TYPES[] = {CERT_TYPE_HOST, CERT_TYPE_CLUSTER};
constexpr ca_usage CA_MODES[] = {CA_USAGE_INTERNAL, CA_USAGE_EXTERNAL, CA_USAGE_NONE};

/// Text of a key; null when it is absent or no text.
const char* textOf(const json_t* entry, const char* key)
{
    return json_string_value(json_object_get(entry, key));
}

bool parseCertType(const char* word, cert_type& type)
{
    for (const cert_type known : CERT_TYPES) {
        if (word && std::strcmp(word, certTypeName(known)) == 0) {
            type = known;
            return true;
        }
    }
    return false;
}

bool parseCaMode(const char* word, ca_usage& mode)
{
    for (const ca_usage known : CA_MODES) {
        if (word && std::strcmp(word, CaUsageToString(known)) == 0) {
            mode = known;
            return true;
        }
    }
    return false;
}

bool parseTexts(const json_t* entry, Identity& identity, std::string& fault)
{
    for (const TextKey& text : TEXT_KEYS) {
        const char* value = textOf(entry, text.key);
        if (!value) {
            fault = std::string("has no text for \"") + text.key + "\"";
            return false;
        }
        identity.*text.member = value;
    }
    const json_t* trustVersion = json_object_get(entry, "trustVersion");
    if (trustVersion && !json_is_string(trustVersion)) {
        fault = "has a \"trustVersion\" that is no text";
        return false;
    }
    if (trustVersion && json_string_length(trustVersion) > 0)
        identity.trustVersion = json_string_value(trustVersion);
    return true;
}

bool parseIdentity(const json_t* entry, Identity& identity, std::string& fault)
{
    if (!json_is_object(entry)) {
        fault = "is not a JSON object";
        return false;
    }
    if (!parseTexts(entry, identity, fault))
        return false;
    if (!parseCertType(textOf(entry, "certType"), identity.certType)) {
        fault = "has a \"certType\" other than \"host\" and \"cluster\"";
        return false;
    }
    if (!parseCaMode(textOf(entry, "caMode"), identity.caMode)) {
        fault = "has a \"caMode\" other than \"internal\", \"external\" and \"none\"";
        return false;
    }
    if (identity.hostId.empty()) {
        fault = "has an empty \"hostId\"";
        return false;
    }
    for (const auto& name : FILE_NAMES) {
        if (const char* why = identityFileFault(identity.*name)) {
            fault = "names the file [" + identity.*name + "]: " + why;
            return false;
        }
    }
    return true;
}

bool checkVersion(const json_t* root, std::string& fault)
{
    const json_t* version = json_object_get(root, "version");
    if (!json_is_integer(version))
        fault = "it has no version number";
    else if (json_integer_value(version) > STORE_VERSION)
        fault = "it is of version " + std::to_string(json_integer_value(version)) +
                ", made by a newer release, and this one knows version " + std::to_string(STORE_VERSION) +
                "; install that release again";
    else if (json_integer_value(version) != STORE_VERSION)
        fault = "it is of version " + std::to_string(json_integer_value(version)) + "; this release knows " +
                std::to_string(STORE_VERSION) + " only";
    else
        return true;
    return false;
}

/// Why a readable entry is not used; an empty text for one that is.
std::string whyLeftOut(const Identity& identity, const std::vector<Identity>& earlier)
{
    if (const char* why = serverNameFault(identity.server))
        return "server name [" + identity.server.substr(0, SHOWN_CHARACTERS) + "] is refused: " + why;
    if (findIdentity(earlier, identity.server, identity.certType))
        return "server [" + identity.server + "] has an earlier identity of type " +
               certTypeName(identity.certType);
    return "";
}

} // namespace

bool parseIdentityDocument(std::string_view text, IdentityDocument& document, std::string& fault)
{
    json_error_t error{};
    document = IdentityDocument{};
    document.json.reset(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error));
    if (!document.json) {
        fault = "it is not JSON: line " + std::to_string(error.line) + ": " + error.text;
        return false;
    }
    if (!json_is_object(document.json.get())) {
        fault = "it is not a JSON object";
        return false;
    }
    if (!checkVersion(document.json.get(), fault))
        return false;
    const json_t* entries = identityArray(document);
    if (!json_is_array(entries)) {
        fault = "it has no list \"identities\"";
        return false;
    }
    for (std::size_t i = 0; i < json_array_size(entries); ++i) {
        const std::string entry = "identity " + std::to_string(i + 1) + " ";
        Identity identity;
        if (!parseIdentity(json_array_get(entries, i), identity, fault)) {
            fault.insert(0, entry);
            return false;
        }
        if (std::string why = whyLeftOut(identity, document.identities); !why.empty())
            document.leftOut.push_back(why.insert(0, entry + "is left out: "));
        else
            document.identities.push_back(identity);
    }
    return true;
}

IdentityDocument newIdentityDocument()
{
    IdentityDocument document;
    document.json.reset(json_pack("{s:I, s:[]}", "version", STORE_VERSION, "identities"));
    return document;
}

json_t* identityArray(const IdentityDocument& document)
{
    return json_object_get(document.json.get(), "identities");
}

JsonRef identityToJson(const Identity& identity)
{
    JsonRef entry(json_object());
    bool complete = true;
    const auto set = [&](const char* key, const std::string& value) {
        const bool textual = value.find('\0') == std::string::npos;
        complete =
            textual && json_object_set_new(entry.get(), key, json_string(value.c_str())) == 0 && complete;
    };
    set("server", identity.server);
    set("certType", certTypeName(identity.certType));
    set("hostId", identity.hostId);
    set("hostName", identity.hostName);
    if (identity.trustVersion)
        set("trustVersion", *identity.trustVersion);
    set("caMode", CaUsageToString(identity.caMode));
    set("certificate", identity.certificate);
    set("privateKey", identity.privateKey);
    set("caCertificates", identity.caCertificates);
    return complete ? std::move(entry) : nullptr;
}

bool isIdentityEntry(const json_t* entry, const std::string& server, cert_type certType)
{
    const char* name = textOf(entry, "server");
    const char* type = textOf(entry, "certType");
    return name && type && strcasecmp(name, server.c_str()) == 0 &&
           std::strcmp(type, certTypeName(certType)) == 0;
}

const char* identityFileFault(std::string_view name)
{
    if (name.empty())
        return "it is empty";
    if (name.find('/') != std::string_view::npos)
        return "it holds a slash";
    if (name == "." || name == ".." || name == "identity.json" || name == "identity.lock")
        return "it is no file of an identity";
    return nullptr;
}

std::string tokenFileName(const std::string& certType, const std::string& server)
{
    return std::string(TOKEN_PREFIX) + certType + "." + server;
}

} // namespace tq
