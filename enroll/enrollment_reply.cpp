#include "enroll/enrollment_reply.h"

#include "platform/json.h"
#include "platform/server_name.h"

#include <algorithm>

namespace enroll {

namespace {

/// Largest reply that is looked at: certificates of a few kilobytes each.
constexpr std::size_t REPLY_MAX_BYTES = std::size_t{1} << 20U;

[[noreturn]] void refuse(const std::string& fault)
{
    throw UnusableReply(fault);
}

bool isHexDigit(char digit)
{
    return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f') || (digit >= 'A' && digit <= 'F');
}

/// Text of a key; absent when the object has no such key.
std::optional<std::string> textOf(const json_t* object, const char* key)
{
    const json_t* value = json_object_get(object, key);
    if (value == nullptr)
        return std::nullopt;
    if (!json_is_string(value) || json_string_length(value) == 0)
        refuse(std::string("\"") + key + "\" is not a text");
    return std::string(json_string_value(value), json_string_length(value));
}

std::string requiredTextOf(const json_t* object, const char* key)
{
    const std::optional<std::string> text = textOf(object, key);
    if (!text)
        refuse(std::string("it has no \"") + key + "\"");
    return *text;
}

/// The host name of a certificate that belongs to this key and host id.
std::string checkedHostName(const std::string& pem, const EVP_PKEY& key, const std::string& hostId)
{
    const tq::Certificate certificate = tq::parseCertificate(pem);
    if (!certificate)
        refuse("\"certificate\" holds no certificate");
    if (!tq::isKeyOfCertificate(key, *certificate))
        refuse("its certificate is for another key");
    const std::optional<tq::AlternativeNames> names = tq::readAlternativeNames(*certificate);
    const std::string urn = std::string(tq::UUID_URI_PREFIX) + hostId;
    if (!names || std::find(names->uris.begin(), names->uris.end(), urn) == names->uris.end())
        refuse("its certificate does not name the host identifier " + hostId);
    if (names->dnsNames.empty())
        refuse("its certificate names no host");
    // It is shown on terminals and goes into files, as a server's name does.
    if (const char* fault = tq::serverNameFault(names->dnsNames.front()); fault != nullptr)
        refuse("its certificate has a host name that cannot be used: " + std::string(fault));
    return names->dnsNames.front();
}

} // namespace

bool isUuid(std::string_view text)
{
    constexpr std::string_view FORM = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    return std::equal(text.begin(), text.end(), FORM.begin(), FORM.end(),
                      [](char byte, char form) { return form == '-' ? byte == '-' : isHexDigit(byte); });
}

EnrollmentReply parseEnrollmentReply(std::string_view body, const EVP_PKEY& key)
{
    if (body.size() > REPLY_MAX_BYTES)
        refuse("it is too large");
    const tq::JsonRef object(json_loadb(body.data(), body.size(), 0, nullptr));
    if (!json_is_object(object.get()))
        refuse("it is not a JSON object");
    EnrollmentReply reply;
    reply.hostId = requiredTextOf(object.get(), "hostId");
    if (!isUuid(reply.hostId))
        refuse("\"hostId\" is not a UUID");
    reply.certificate = requiredTextOf(object.get(), "certificate");
    reply.caCertificates = requiredTextOf(object.get(), "caCertificates");
    reply.trustVersion = textOf(object.get(), "trustVersion");
    reply.hostName = checkedHostName(reply.certificate, key, reply.hostId);
    if (tq::parseCertificateChain(reply.caCertificates).empty())
        refuse("\"caCertificates\" holds no certificates, or a damaged one");
    return reply;
}

} // namespace enroll
