#include "tests/unit/masterd/running_service.h"

#include "masterd/clock.h"
#include "platform/json.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace tests {

namespace {

masterd::RequestLog openLog(const std::string& path)
{
    return masterd::RequestLog(
        tq::FileDescriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)));
}

} // namespace

std::string jsonMember(const std::string& text, const char* key)
{
    const tq::JsonRef document(json_loads(text.c_str(), 0, nullptr));
    const json_t* member = json_object_get(document.get(), key);
    if (json_is_integer(member))
        return std::to_string(json_integer_value(member));
    return json_is_string(member) ? json_string_value(member) : "";
}

std::string jsonObject(const std::vector<std::pair<std::string, std::string>>& members)
{
    const tq::JsonRef object(json_object());
    for (const auto& [key, value] : members)
        json_object_set_new(object.get(), key.c_str(), json_string(value.c_str()));
    const tq::JsonText text(json_dumps(object.get(), 0));
    return text.get();
}

RunningService::RunningService(const masterd::ConnectionLimits& limits)
    : folder_(scratch_.file("data")),
      authority_(masterd::initDataFolder(folder_, {"localhost", "127.0.0.1"})),
      store_(folder_.databaseFile()),
      service_(std::make_unique<masterd::MasterService>(folder_, "127.0.0.1", 0,
                                                        openLog(scratch_.file("requests")), limits)),
      thread_([this] { result_ = service_->run(); })
{
}

RunningService::~RunningService()
{
    stop();
}

bool RunningService::stop()
{
    service_->stop();
    if (thread_.joinable())
        thread_.join();
    return result_;
}

Host::Host(RunningService& service, const std::string& hostName) : Host(service)
{
    const masterd::Secret invitation =
        service.store().invite(hostName, masterd::IdentityType::host, masterd::unixNow() + 600);
    const httplib::Result result = enroll(invitation.text());
    if (!result || result->status != 201) {
        ADD_FAILURE() << "no enrolment: " << (result ? result->body : httplib::to_string(result.error()));
        return;
    }
    hostId = jsonMember(result->body, "hostId");
    certificate = tq::parseCertificate(jsonMember(result->body, "certificate"));
    takeToken();
}

std::unique_ptr<httplib::SSLClient> Host::anonymous() const
{
    auto client = std::make_unique<httplib::SSLClient>("127.0.0.1", service_.port());
    X509_STORE* trusted = X509_STORE_new(); // the client takes it over
    X509_STORE_add_cert(trusted, service_.authority().own().certificate.get());
    client->set_ca_cert_store(trusted);
    client->enable_server_certificate_verification(true);
    client->set_read_timeout(std::chrono::seconds(60));
    return client;
}

std::unique_ptr<httplib::SSLClient> Host::client() const
{
    auto client = anonymous();
    SSL_CTX_use_certificate(client->ssl_context(), certificate.get());
    SSL_CTX_use_PrivateKey(client->ssl_context(), key_.get());
    return client;
}

httplib::Result Host::enroll(const std::string& invitation) const
{
    return anonymous()->Post("/torquenix/security/enrollments",
                             jsonObject({{"invitation", invitation}, {"certificateRequest", request()}}),
                             "application/json");
}

void Host::takeToken()
{
    const httplib::Result result = client()->Post("/torquenix/security/tokens", "{}", "application/json");
    if (result && result->status == 201)
        token = jsonMember(result->body, "token");
    else
        ADD_FAILURE() << "no token: " << (result ? result->body : httplib::to_string(result.error()));
}

} // namespace tests
