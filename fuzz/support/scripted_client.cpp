// Stands in for the HTTP client: every request gets the answer that the target has set.
#include "fuzz/support/described_host.h"
#include "platform/httpclient.h"

namespace fuzz {

ScriptedAnswer& serverAnswer()
{
    static ScriptedAnswer answer;
    return answer;
}

} // namespace fuzz

struct TQClientCURL::Connection {};

TQClientCURL::TQClientCURL(const std::string& /*server*/, int /*port*/, cert_type /*certType*/,
                           TQCurlSessionType /*sessionType*/, TokenManager_Base* /*tokenManager*/,
                           const std::string& /*text6*/, bool /*flag7*/, bool /*flag8*/, bool /*flag9*/,
                           const std::string& /*text10*/, const std::string& /*text11*/,
                           const std::string& /*text12*/, const std::string& /*text13*/,
                           const std::string& /*text14*/, const std::string& /*text15*/, bool /*flag16*/,
                           bool& /*flag17*/, const std::string& /*text18*/, int /*number19*/)
{
}

TQClientCURL::~TQClientCURL() = default;

int TQClientCURL::exchange(const char* /*method*/, const std::string& /*path*/, const std::string* /*body*/,
                           const char* /*context*/)
{
    const fuzz::ScriptedAnswer& answer = fuzz::serverAnswer();
    httpStatus = answer.httpStatus;
    responseBody = answer.body;
    return answer.status;
}

int TQClientCURL::Get(const std::string& path)
{
    return exchange("GET", path, nullptr, "");
}

int TQClientCURL::Put(const std::string& path, const std::string& body)
{
    return exchange("PUT", path, &body, "");
}

int TQClientCURL::Post(const std::string& path, const std::string& body)
{
    return exchange("POST", path, &body, "");
}

int TQClientCURL::Delete(const std::string& path)
{
    return exchange("DELETE", path, nullptr, "");
}

int TQClientCURL::refreshToken()
{
    return fuzz::serverAnswer().status;
}
