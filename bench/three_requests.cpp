// What the wire of a first update costs a bare program: a token, a record, a token again, on one connection.
//
// usage: three-requests URL AUTHORITY CERTIFICATE KEY HOST_ID RECORD
// URL is the server's root; RECORD is a file with the body of the PUT. A time stands in the record that is
// sent, so that the server has something to store each time.

#include <chrono>
#include <cstdio>
#include <curl/curl.h>
#include <fstream>
#include <iterator>
#include <string>

namespace {

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

bool update(CURL* handle, const std::string& root, const std::string& hostId, const std::string& record)
{
    const std::string tokens = root + "/torquenix/security/tokens";
    const std::string token = tokenOf(ask(handle, "POST", tokens, "", "{}"));
    return !token.empty() &&
           !ask(handle, "PUT", root + "/torquenix/config/hosts/" + hostId, token, record).empty() &&
           !ask(handle, "POST", tokens, token, "{}").empty();
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 7) {
        std::fprintf(stderr, "usage: three-requests URL AUTHORITY CERTIFICATE KEY HOST_ID RECORD\n");
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_CAINFO, argv[2]);
    curl_easy_setopt(handle, CURLOPT_SSLCERT, argv[3]);
    curl_easy_setopt(handle, CURLOPT_SSLKEY, argv[4]);
    const bool done = update(handle, argv[1], argv[5], readRecord(argv[6]));
    curl_easy_cleanup(handle);
    return done ? 0 : 1;
}
