// What the wire of a first update costs a bare program: a token, a record, a token again, on one connection
// or, as the command has it, with the last on a connection of its own.
//
// usage: three-requests CONNECTIONS URL AUTHORITY CERTIFICATE KEY HOST_ID RECORD
// CONNECTIONS is 1 or 2; URL is the server's root; RECORD is a file with the body of the PUT. A time stands
// in the record that is sent, so that the server has something to store each time.

#include <chrono>
#include <cstdio>
#include <curl/curl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace {

struct Cleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, Cleanup>;

/// One connection to the server, with the host's trust and certificate.
Handle makeHandle(char* const files[])
{
    Handle handle(curl_easy_init());
    curl_easy_setopt(handle.get(), CURLOPT_CAINFO, files[0]);
    curl_easy_setopt(handle.get(), CURLOPT_SSLCERT, files[1]);
    curl_easy_setopt(handle.get(), CURLOPT_SSLKEY, files[2]);
    return handle;
}

std::size_t append(char* data, std::size_t size, std::size_t count, void* text)
{
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

/// Sends one request; its reply, empty when it failed or was refused.
std::string ask(CURL* handle, const char* method, const std::string& url, const std::string& token,
                const std::string& body)
{
    std::string reply;
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    if (!token.empty())
        headers = curl_slist_append(headers, ("Authorization: Bearer " + token).c_str());
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply);
    const CURLcode code = curl_easy_perform(handle);
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    if (code != CURLE_OK || status < 200 || status > 299) {
        std::fprintf(stderr, "three-requests: %s: %s, status %ld\n", url.c_str(), curl_easy_strerror(code),
                     status);
        return "";
    }
    return reply;
}

/// The text of "token" in a reply {"token":"...","expiresIn":...}.
std::string tokenOf(const std::string& reply)
{
    const std::string key = "\"token\":\"";
    const std::size_t at = reply.find(key);
    if (at == std::string::npos)
        return "";
    const std::size_t begin = at + key.size();
    return reply.substr(begin, reply.find('"', begin) - begin);
}

/// The record of a file with one field more.
std::string readRecord(const char* path)
{
    std::ifstream file(path);
    std::string record((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string time = std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
    return record.insert(record.rfind('}'), ",\"machineTquType\":\"" + time + "\"");
}

bool update(bool onTwo, char* const files[], const std::string& root, const std::string& hostId,
            const std::string& record)
{
    const std::string tokens = root + "/torquenix/security/tokens";
    Handle handle = makeHandle(files);
    const std::string token = tokenOf(ask(handle.get(), "POST", tokens, "", "{}"));
    const std::string place = root + "/torquenix/config/hosts/" + hostId;
    if (token.empty() || ask(handle.get(), "PUT", place, token, record).empty())
        return false;
    if (onTwo)
        handle = makeHandle(files);
    return !ask(handle.get(), "POST", tokens, token, "{}").empty();
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 8) {
        std::fprintf(stderr,
                     "usage: three-requests CONNECTIONS URL AUTHORITY CERTIFICATE KEY HOST_ID RECORD\n");
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const bool onTwo = std::string(argv[1]) == "2";
    return update(onTwo, argv + 3, argv[2], argv[6], readRecord(argv[7])) ? 0 : 1;
}
