/// Requests to the master server, from below the socket to the answer. An input is a row of requests; the
/// parts of each are: letters for what the client shows, method, target, header lines, body, and names of a
/// certificate of the client's own making.
///
/// Letters: "c" the certificate of an enrolled host, "n" one with the names of the last part, else none; "s"
/// the body comes in small pieces, "e" it ends early. Marks that are replaced: "@token@", "@uuid@", "@other@"
/// (the identifier of another host), "@invitation@", "@request@" (a good certificate request), "@large@" (as
/// many bytes as a body may have).
#include "fuzz/support/target.h"
#include "fuzz/support/template_text.h"
#include "masterd/clock.h"
#include "masterd/request_body.h"
#include "masterd/request_log.h"
#include "masterd/web_service.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <openssl/x509v3.h>
#include <set>

namespace {

using fuzz::require;
using masterd::Identity;

struct Names {
    std::vector<std::string> dns;
    std::vector<std::string> uris;
};

void addNames(GENERAL_NAMES& list, int type, const std::vector<std::string>& texts)
{
    for (const std::string& text : texts) {
        GENERAL_NAME* const name = GENERAL_NAME_new();
        ASN1_IA5STRING* const value = ASN1_IA5STRING_new();
        ASN1_STRING_set(value, text.data(), static_cast<int>(text.size()));
        GENERAL_NAME_set0_value(name, type, value);
        sk_GENERAL_NAME_push(&list, name);
    }
}

/// As far as the service looks: the layer of TLS has checked who issued it.
tq::Certificate certificateFor(const Names& names)
{
    tq::Certificate certificate(X509_new());
    const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> list(sk_GENERAL_NAME_new_null(),
                                                                             GENERAL_NAMES_free);
    addNames(*list, GEN_DNS, names.dns);
    addNames(*list, GEN_URI, names.uris);
    X509_add1_ext_i2d(certificate.get(), NID_subject_alt_name, list.get(), 0, 0);
    return certificate;
}

/// A folder for the database, in memory where the target runs in its sandbox.
std::string newFolder()
{
    std::string name = "/tmp/fuzz.XXXXXX";
    require(mkdtemp(name.data()) != nullptr, "a folder can be made");
    return name;
}

std::string databaseIn(const std::string& folder)
{
    masterd::Store::create(folder + "/hosts.db");
    return folder + "/hosts.db";
}

/// A master server with two enrolled hosts.
class Master {
public:
    Master()
    {
        enter(own_);
        enter(other_);
        require(store_.putHost(other_, OTHER_RECORD) == masterd::Store::Stored::done,
                "a record can be stored");
        const tq::Key key = tq::generateKey();
        values_ = {{"@token@", store_.issueToken(own_.hostId, now_, now_ + 604800).text()},
                   {"@uuid@", own_.hostId},
                   {"@other@", other_.hostId},
                   {"@request@", fuzz::jsonEscaped(tq::makeCertificateRequest(*key, "x"))},
                   {"@large@", std::string(masterd::MAX_BODY_BYTES, 'x')}};
    }
    Master(const Master&) = delete;
    Master& operator=(const Master&) = delete;
    ~Master() { std::filesystem::remove_all(folder_); }

    /// Every row of requests begins with the same database.
    void begin() { (void)store_.deleteHost(own_.hostId); }

    void send(std::string_view text)
    {
        fuzz::Parts parts(text);
        const std::string_view letters = parts.next();
        httplib::Request request;
        request.method = parts.next();
        request.target = replaced(parts.next());
        addHeaders(request, replaced(parts.next()));
        const std::string body = replaced(parts.next());
        const tq::Certificate certificate = certificateOf(letters, replaced(parts.next()));
        check(request, answer(request, body, letters, certificate.get()), certificate.get());
    }

private:
    static constexpr const char* OTHER_RECORD = R"({"osType":"UNIX"})";

    void enter(const Identity& identity)
    {
        const masterd::Secret invitation = store_.invite(identity.hostName, identity.type, now_ + 60);
        require(store_.redeemInvitation(invitation, identity, now_), "a host can be enrolled");
    }

    std::string replaced(std::string_view text)
    {
        if (text.find("@invitation@") != std::string_view::npos) {
            fuzz::TemplateValues withInvitation = values_;
            withInvitation.emplace_back(
                "@invitation@",
                store_.invite("h3.example", masterd::IdentityType::host, now_ + 604800).text());
            return fuzz::expanded(text, withInvitation);
        }
        return fuzz::expanded(text, values_);
    }

    static void addHeaders(httplib::Request& request, std::string_view text)
    {
        for (fuzz::Parts lines(text, '\n'); !lines.isAtEnd();) {
            const std::string_view line = lines.next();
            const std::size_t colon = line.find(": ");
            if (colon != std::string_view::npos)
                request.headers.emplace(line.substr(0, colon), line.substr(colon + 2));
        }
    }

    [[nodiscard]] tq::Certificate certificateOf(std::string_view letters, std::string_view namesText) const
    {
        Names names;
        if (letters.find('c') != std::string_view::npos) {
            names = {{own_.hostName}, {"urn:uuid:" + own_.hostId}};
        } else if (letters.find('n') != std::string_view::npos) {
            for (fuzz::Parts lines(namesText, '\n'); !lines.isAtEnd();) {
                const std::string line(lines.next());
                (line.rfind("urn:", 0) == 0 ? names.uris : names.dns).push_back(line);
            }
        } else {
            return nullptr;
        }
        return certificateFor(names);
    }

    /// As the web server does between the HTTP library and the service.
    masterd::WebReply answer(const httplib::Request& request, const std::string& body,
                             std::string_view letters, const X509* certificate)
    {
        const bool isRead =
            certificate != nullptr || masterd::WebService::isEnrolment(request.method, request.target);
        const httplib::ContentReader reader(
            [&](const httplib::ContentReceiver& receive) { return deliver(body, letters, receive); },
            nullptr);
        masterd::RequestBody taken;
        if (isRead)
            taken = masterd::readRequestBody(request, request.method == "GET" ? nullptr : &reader);
        require(taken.text.size() <= masterd::MAX_BODY_BYTES, "a body has its limit");
        if (taken.faultStatus != 0)
            return masterd::errorReply(taken.faultStatus, taken.fault);
        return service_.handle({request.method, request.target, request.get_header_value("Authorization"),
                                std::move(taken.text), certificate});
    }

    static bool deliver(const std::string& body, std::string_view letters,
                        const httplib::ContentReceiver& receive)
    {
        const std::size_t piece = letters.find('s') == std::string_view::npos ? body.size() + 1 : 97;
        for (std::size_t at = 0; at < body.size(); at += piece) {
            if (!receive(body.data() + at, std::min(piece, body.size() - at)))
                return false;
        }
        return letters.find('e') == std::string_view::npos;
    }

    /// A long list comes in parts.
    static std::string wholeBody(const masterd::WebReply& reply)
    {
        std::string body = reply.body;
        while (reply.nextPart) {
            const std::string part = reply.nextPart();
            if (part.empty())
                break;
            body += part;
        }
        return body;
    }

    void check(const httplib::Request& request, const masterd::WebReply& reply, const X509* certificate)
    {
        static const std::set<int> KNOWN{200, 201, 204, 400, 401, 403, 404, 405, 409, 413};
        require(KNOWN.count(reply.status) == 1, "an answer has a known status", std::to_string(reply.status));
        const std::string body = wholeBody(reply);
        require(reply.status == 204 ? body.empty() : fuzz::isJson(body), "a body is JSON", body);
        if (reply.status >= 400)
            require(reply.body.find("\"errorCode\":7" + std::to_string(reply.status)) != std::string::npos,
                    "an error has its code", reply.body);
        require(certificate != nullptr || reply.status >= 400 || reply.status == 201,
                "without a certificate there is an enrolment at most", reply.body);
        require(store_.findHost(other_.hostId) == OTHER_RECORD, "another host's record stays as it was");
        const std::string line = masterd::formatRequestLine(
            {"192.0.2.1", request.method, request.target, reply.status, reply.identity, ""}, now_);
        require(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }),
                "a request's line is printable", line);
    }

    const std::int64_t now_ = masterd::unixNow();
    const Identity own_{"6f0f0000-0000-4000-8000-000000000001", "h1.example"};
    const Identity other_{"6f0f0000-0000-4000-8000-000000000002", "h2.example"};
    std::string folder_ = newFolder();
    masterd::Authority authority_ = masterd::Authority::create();
    masterd::Store store_{databaseIn(folder_)};
    masterd::SettingsFile settings_{folder_ + "/settings.json"};
    masterd::WebService service_{authority_, store_, settings_};
    fuzz::TemplateValues values_;
};

constexpr int MOST_REQUESTS = 8;

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Master master;
    master.begin();
    fuzz::Parts requests(fuzz::textOf(data, size), fuzz::Parts::NEXT);
    for (int sent = 0; sent < MOST_REQUESTS && !requests.isAtEnd(); ++sent)
        master.send(requests.next());
    return 0;
}
