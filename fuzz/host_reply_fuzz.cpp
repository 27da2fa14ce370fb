/// A master server's answer to the reads, through the client, the converter and the record.
#include "fuzz/support/described_host.h"
#include "fuzz/support/json_blocks.h"
#include "fuzz/support/target.h"
#include "hostdb/error_body.h"
#include "hostdb/tqclntdb_json.h"
#include "hostdb/tqclntdb_svchandler.h"
#include "hostdb/web_service_exception.h"
#include "hostinfo/tqclntdb_hostinfo.h"
#include "platform/http_answer.h"
#include "platform/status.h"

#include <functional>
#include <stdexcept>

namespace {

using fuzz::require;
using TQCLNTDB::CHostInformation;
using TQCLNTDB::CTQHostDBServiceHandler;
using TQCLNTDB::JSONConverter;

/// A read whose answer has an array element that is no string throws, deliberately.
int statusOf(const std::function<int()>& read)
{
    try {
        return read();
    } catch (const std::logic_error&) {
        return EC_internal;
    }
}

/// What was read can be written; and writing it, reading it and writing it again changes nothing more.
void checkRecord(const CHostInformation& record)
{
    const std::string text = record.getJSON(true, false);
    require(fuzz::isJson(text), "a record that was read is written as JSON", text);
    JSONConverter converter;
    require(converter.LoadJSON(("[" + text + "]").c_str()), "it can be read again", text);
    CHostInformation again;
    again.getHostObj(converter, 0);
    require(again.getJSON(true, false) == text, "it then says the same", text);
}

void checkReads(const std::string& body)
{
    fuzz::serverAnswer() = {0, 200, body};
    CTQHostDBServiceHandler service("master1.example", CERT_TYPE_HOST);
    CHostInformation host;
    int status = statusOf([&] { return service.getHostByHostId(host, "6f0f"); });
    require(status == 0 || status == EC_unexpected_reply || status == EC_internal, "a known status");
    checkRecord(host);

    CHostInformation named;
    status = statusOf([&] { return service.getHost(named, "h1.example"); });
    require(status == 0 || status == EC_unexpected_reply || status == EC_internal, "a known status");
    checkRecord(named);

    std::vector<CHostInformation> all;
    status = statusOf([&] { return service.getAllHosts(all); });
    require(status == 0 || status == EC_internal, "a list that cannot be read is empty");
    for (const CHostInformation& record : all)
        checkRecord(record);
}

void checkFailure(const std::string& body)
{
    fuzz::serverAnswer() = {0, 500, body};
    CTQHostDBServiceHandler service("master1.example", CERT_TYPE_HOST);
    CHostInformation host;
    try {
        service.getHostByHostId(host, "6f0f");
        require(false, "another status than 200 is an exception");
    } catch (const TQCLNTDB::WebServiceException& failure) {
        const TQCLNTDB::ErrorBody error = TQCLNTDB::readErrorBody(failure.responseBody());
        require(error.errorCode == failure.getTquErrorCode(), "one error code");
    }
    const std::string words = tq::describeAnswer(500, body);
    require(words.size() <= 600, "words about an answer are short", words);
    for (const char byte : words)
        require(byte >= ' ' && byte <= '~', "words about an answer are printable", words);
}

/// The getters by themselves, at records that may not be there.
void checkConverter(const std::string& body)
{
    JSONConverter converter;
    const bool loaded = converter.LoadJSON(body.c_str());
    const std::size_t count = converter.GetNumberOfRecords();
    require(loaded || count == 0, "what does not load has no records");
    for (const std::size_t index : {std::size_t{0}, count, count + 1}) {
        std::string text = "before";
        std::int32_t number = 7;
        bool flag = true;
        const bool isText = converter.GetStringValue(text, "hostName", index, true);
        require(isText || text == "before", "a text that is not there leaves the old one");
        require(converter.GetIntegerValue(number, "errorCode", index) || number == 7,
                "a number that is not there leaves the old one");
        require(converter.GetBooleanValue(flag, "isSecureEnabled", index) || !flag,
                "a flag that is not there is false");
        require(index < count || !isText, "there is nothing behind the last record");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz::JsonScope json;
    const std::string body(fuzz::textOf(data, size));
    checkReads(body);
    checkFailure(body);
    checkConverter(body);
    checkConverter("[" + body + "]");
    return 0;
}
