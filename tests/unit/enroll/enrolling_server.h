/// A master server that enrols, as the tests of enroll/ want it: good, or bad in one way.
#pragma once

#include "platform/json.h"
#include "tests/fakes/tls/test_pki.h"
#include "tests/fakes/tls/tls_test_server.h"

#include <functional>
#include <memory>
#include <string>

constexpr const char* HOST_ID = "6f0f0000-1111-4222-8333-444455556666";

class EnrollingServer {
public:
    fakes::Issued authority = fakes::makeSelfSigned(fakes::authorityOptions("authority"));
    fakes::ServerOptions options;
    std::string invitation = "let-me-in";
    std::string hostName = "h1.example";
    /// In place of the enrolment, when it is set.
    std::function<fakes::ServerAnswer(const fakes::SeenRequest&)> instead;

    EnrollingServer() { show(fakes::makeCertificate(authority, fakes::serverOptions())); }

    /// Shows this certificate, with the authority behind it.
    void show(const fakes::Issued& certificate)
    {
        options.chainPem = certificate.pem() + authority.pem();
        options.keyPem = certificate.keyPem();
    }

    [[nodiscard]] std::string fingerprint() const
    {
        return tq::certificateFingerprint(*authority.certificate);
    }

    fakes::TlsTestServer& start()
    {
        server_ = std::make_unique<fakes::TlsTestServer>(options, [this](const fakes::SeenRequest& request) {
            return instead ? instead(request) : enrol(request);
        });
        return *server_;
    }

    /// The server's own answer: 403 for another invitation, else 201.
    fakes::ServerAnswer enrol(const fakes::SeenRequest& request) const
    {
        const tq::JsonRef body(json_loads(request.body.c_str(), 0, nullptr));
        const char* given = json_string_value(json_object_get(body.get(), "invitation"));
        if (given == nullptr || invitation != given)
            return fakes::answer(403, R"({"errorCode": 403, "errMessage": "the invitation has expired"})");
        return certify(201, *body);
    }

    /// The server's own answer to a renewal: 200.
    fakes::ServerAnswer renew(const fakes::SeenRequest& request) const
    {
        const tq::JsonRef body(json_loads(request.body.c_str(), 0, nullptr));
        return certify(200, *body);
    }

private:
    fakes::ServerAnswer certify(int status, const json_t& body) const
    {
        const char* csr = json_string_value(json_object_get(&body, "certificateRequest"));
        const tq::Certificate made = fakes::certify(
            authority, csr == nullptr ? "" : csr,
            {.commonName = hostName, .dnsNames = {hostName}, .uris = {std::string("urn:uuid:") + HOST_ID}});
        if (!made)
            return fakes::answer(400, R"({"errorCode": 400, "errMessage": "no request"})");
        const tq::JsonRef reply(json_pack("{s:s, s:s, s:s, s:s}", "hostId", HOST_ID, "certificate",
                                          tq::certificateToPem(*made).c_str(), "caCertificates",
                                          authority.pem().c_str(), "trustVersion", "7"));
        return fakes::answer(status, tq::JsonText(json_dumps(reply.get(), 0)).get());
    }

    std::unique_ptr<fakes::TlsTestServer> server_;
};
