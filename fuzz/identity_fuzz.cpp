/// The identity store's document.
#include "fuzz/support/target.h"
#include "platform/identity_document.h"
#include "platform/server_name.h"

namespace {

using fuzz::require;

void checkIdentity(const tq::Identity& identity, const tq::IdentityDocument& document)
{
    require(tq::serverNameFault(identity.server) == nullptr, "a server's name is a good one",
            identity.server);
    require(!identity.hostId.empty(), "an identity has a host identifier");
    for (const std::string& name : {identity.certificate, identity.privateKey, identity.caCertificates})
        require(!name.empty() && name.find('/') == std::string::npos, "a file's name stays in the folder",
                name);
    require(tq::findIdentity(document.identities, identity.server, identity.certType) == &identity,
            "a server and type stand once", identity.server);

    const tq::JsonRef entry = tq::identityToJson(identity);
    require(entry != nullptr, "what was read can be written");
    require(tq::isIdentityEntry(entry.get(), identity.server, identity.certType), "it is found again");
    tq::IdentityDocument rewritten = tq::newIdentityDocument();
    json_array_append(tq::identityArray(rewritten), entry.get());
    const tq::JsonText text(json_dumps(rewritten.json.get(), 0));
    tq::IdentityDocument reread;
    std::string fault;
    require(tq::parseIdentityDocument(text.get(), reread, fault) && reread.identities.size() == 1,
            "what was written can be read", fault);
    const tq::Identity& same = reread.identities.front();
    require(same.server == identity.server && same.hostId == identity.hostId &&
                same.hostName == identity.hostName && same.trustVersion == identity.trustVersion &&
                same.caMode == identity.caMode && same.certType == identity.certType,
            "it says the same", text.get());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    tq::IdentityDocument document;
    std::string fault;
    if (!tq::parseIdentityDocument(fuzz::textOf(data, size), document, fault)) {
        require(!fault.empty(), "a refused store has a reason");
        return 0;
    }
    require(document.identities.size() + document.leftOut.size() ==
                json_array_size(tq::identityArray(document)),
            "each entry is used or left out with a reason");
    for (const tq::Identity& identity : document.identities)
        checkIdentity(identity, document);
    return 0;
}
