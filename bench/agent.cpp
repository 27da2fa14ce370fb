#include "bench/agent.h"

#include "bench/failure.h"
#include "platform/json.h"

#include <fstream>
#include <openssl/ec.h>
#include <openssl/pem.h>

namespace bench {

namespace {

using Bio = std::unique_ptr<BIO, OpenSslRelease>;

std::string textOf(BIO& stream)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(&stream, &data);
    return {data, static_cast<std::size_t>(size)};
}

Bio streamOf(const std::string& text)
{
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string stringOf(const json_t* object, const char* key)
{
    const char* text = json_string_value(json_object_get(object, key));
    return text != nullptr ? text : "";
}

Agent parseAgent(const std::string& line)
{
    const tq::JsonRef object(json_loads(line.c_str(), 0, nullptr));
    Agent agent;
    agent.hostName = stringOf(object.get(), "hostName");
    agent.hostId = stringOf(object.get(), "hostId");
    agent.token = stringOf(object.get(), "token");
    agent.certificate = parseCertificate(stringOf(object.get(), "certificate"));
    const std::string keyText = stringOf(object.get(), "key");
    agent.key.reset(PEM_read_bio_PrivateKey(streamOf(keyText).get(), nullptr, nullptr, nullptr));
    if (!agent.certificate || !agent.key)
        throw Failure("a line of the agents' file holds no identity");
    return agent;
}

} // namespace

std::unique_ptr<EVP_PKEY, OpenSslRelease> makeKey()
{
    std::unique_ptr<EVP_PKEY, OpenSslRelease> key(EVP_EC_gen("P-256"));
    if (!key)
        throw tlsFailure("no key");
    return key;
}

std::string makeCertificateRequest(EVP_PKEY& key, const std::string& hostName)
{
    const std::unique_ptr<X509_REQ, OpenSslRelease> request(X509_REQ_new());
    const Bio text(BIO_new(BIO_s_mem()));
    const auto* name = reinterpret_cast<const unsigned char*>(hostName.c_str());
    const bool isMade = X509_REQ_set_pubkey(request.get(), &key) == 1 &&
                        X509_NAME_add_entry_by_txt(X509_REQ_get_subject_name(request.get()), "CN",
                                                   MBSTRING_UTF8, name, -1, -1, 0) == 1 &&
                        X509_REQ_sign(request.get(), &key, EVP_sha256()) > 0 &&
                        PEM_write_bio_X509_REQ(text.get(), request.get()) == 1;
    if (!isMade)
        throw tlsFailure("no certificate request");
    return textOf(*text);
}

std::unique_ptr<X509, OpenSslRelease> parseCertificate(const std::string& pem)
{
    return std::unique_ptr<X509, OpenSslRelease>(
        PEM_read_bio_X509(streamOf(pem).get(), nullptr, nullptr, nullptr));
}

std::string toLine(const Agent& agent)
{
    const Bio certificate(BIO_new(BIO_s_mem()));
    const Bio key(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_X509(certificate.get(), agent.certificate.get()) != 1 ||
        PEM_write_bio_PrivateKey(key.get(), agent.key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        throw tlsFailure("an identity has no text form");
    const tq::JsonRef object(json_pack("{s:s, s:s, s:s, s:s, s:s}", "hostName", agent.hostName.c_str(),
                                       "hostId", agent.hostId.c_str(), "token", agent.token.c_str(),
                                       "certificate", textOf(*certificate).c_str(), "key",
                                       textOf(*key).c_str()));
    return tq::JsonText(json_dumps(object.get(), JSON_COMPACT)).get();
}

std::vector<Agent> readAgents(const std::string& path)
{
    std::ifstream file(path);
    std::vector<Agent> agents;
    for (std::string line; std::getline(file, line);)
        agents.push_back(parseAgent(line));
    if (agents.empty())
        throw Failure("no agents in " + path);
    return agents;
}

} // namespace bench
