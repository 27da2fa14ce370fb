// The road of -readallhosts -display done barely: the reply into one text, wrapped in "[" and "]", parsed as
// a whole tree; a record of texts for each host in a list; a new object for each record, printed as one line.
// For each host without "machineTquType" the entry that the road prescribes goes to a log, one write each.
// What the road releases is released: the list of hosts, when the records are made, though not the reply
// around it.
//
// usage: bare-list URL AUTHORITY CERTIFICATE KEY TOKEN LOG >LIST

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <curl/curl.h>
#include <fcntl.h>
#include <jansson.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

/// Keys whose values are plain texts, in the order in which they are printed, but for the two identifying
/// ones, which stand in front, and for those that are lists.
constexpr std::array<const char*, 4> TEXTS_BEFORE_LISTS{"masterServer", "osType", "osVersion",
                                                        "osReleaseVersion"};
constexpr std::array<const char*, 2> JOINED_LISTS{"installedHFXs", "installedPackages"};
constexpr std::array<const char*, 4> TEXTS_AFTER_LISTS{"kqUpdatePlatform", "hwDescription", "cpuArchitecture",
                                                       "tquVersion"};
constexpr std::array<const char*, 2> ARRAYS{"servers", "clusterSharedNames"};
constexpr std::array<const char*, 3> LAST_TEXTS{"trustVersion", "machineType", "hypervisorType"};
constexpr const char* OPTIONAL_TEXT = "machineTquType";

struct Record {
    std::string uuid;
    std::string hostName;
    std::array<std::string, TEXTS_BEFORE_LISTS.size()> textsBeforeLists;
    std::array<std::vector<std::string>, JOINED_LISTS.size()> joinedLists;
    std::array<std::string, TEXTS_AFTER_LISTS.size()> textsAfterLists;
    std::array<std::vector<std::string>, ARRAYS.size()> arrays;
    bool isSecureEnabled = false;
    std::array<std::string, LAST_TEXTS.size()> lastTexts;
    std::string machineTquType;
};

std::size_t append(char* data, std::size_t size, std::size_t count, void* text)
{
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

bool fetch(char* argv[], std::string& body)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* handle = curl_easy_init();
    curl_slist* headers =
        curl_slist_append(nullptr, (std::string("Authorization: Bearer ") + argv[5]).c_str());
    curl_easy_setopt(handle, CURLOPT_URL, argv[1]);
    curl_easy_setopt(handle, CURLOPT_CAINFO, argv[2]);
    curl_easy_setopt(handle, CURLOPT_SSLCERT, argv[3]);
    curl_easy_setopt(handle, CURLOPT_SSLKEY, argv[4]);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 262144L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    const CURLcode code = curl_easy_perform(handle);
    if (code != CURLE_OK)
        std::fprintf(stderr, "bare-list: %s\n", curl_easy_strerror(code));
    curl_easy_cleanup(handle);
    curl_slist_free_all(headers);
    return code == CURLE_OK;
}

void logMissing(int log, std::size_t number)
{
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    std::tm local{};
    localtime_r(&time.tv_sec, &local);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 256> entry{};
    const int length =
        std::snprintf(entry.data(), entry.size(),
                      "%s.%03ld [%d] <2> JSONConverter::GetStringValue: No value found for key and rec "
                      "num:machineTquType,%zu\n",
                      date.data(), time.tv_nsec / 1000000, getpid(), number);
    [[maybe_unused]] const ssize_t written = write(log, entry.data(), static_cast<std::size_t>(length));
}

std::string textOf(const json_t* host, const char* key)
{
    const json_t* value = json_object_get(host, key);
    return json_is_string(value) ? std::string(json_string_value(value), json_string_length(value))
                                 : std::string();
}

std::vector<std::string> splitTextOf(const json_t* host, const char* key)
{
    const json_t* value = json_object_get(host, key);
    std::string_view text(json_string_value(value), json_string_length(value));
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        parts.emplace_back(text.substr(0, comma));
        text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    }
    return parts;
}

std::vector<std::string> arrayOf(const json_t* host, const char* key)
{
    const json_t* array = json_object_get(host, key);
    std::vector<std::string> values;
    for (std::size_t i = 0; i < json_array_size(array); ++i)
        values.emplace_back(json_string_value(json_array_get(array, i)));
    return values;
}

Record readRecord(const json_t* host, std::size_t number, int log)
{
    Record record;
    record.uuid = textOf(host, "uuid");
    record.hostName = textOf(host, "hostName");
    for (std::size_t i = 0; i < TEXTS_BEFORE_LISTS.size(); ++i)
        record.textsBeforeLists[i] = textOf(host, TEXTS_BEFORE_LISTS[i]);
    for (std::size_t i = 0; i < JOINED_LISTS.size(); ++i)
        record.joinedLists[i] = splitTextOf(host, JOINED_LISTS[i]);
    for (std::size_t i = 0; i < TEXTS_AFTER_LISTS.size(); ++i)
        record.textsAfterLists[i] = textOf(host, TEXTS_AFTER_LISTS[i]);
    for (std::size_t i = 0; i < ARRAYS.size(); ++i)
        record.arrays[i] = arrayOf(host, ARRAYS[i]);
    record.isSecureEnabled = json_is_true(json_object_get(host, "isSecureEnabled"));
    for (std::size_t i = 0; i < LAST_TEXTS.size(); ++i)
        record.lastTexts[i] = textOf(host, LAST_TEXTS[i]);
    record.machineTquType = textOf(host, OPTIONAL_TEXT);
    if (record.machineTquType.empty())
        logMissing(log, number);
    return record;
}

void setText(json_t* object, const char* key, const std::string& value)
{
    json_object_set_new(object, key, json_string(value.c_str()));
}

void setJoinedList(json_t* object, const char* key, const std::vector<std::string>& list)
{
    std::string text;
    for (const std::string& entry : list)
        text.append(text.empty() ? "" : ",").append(entry);
    setText(object, key, text);
}

void setArray(json_t* object, const char* key, const std::vector<std::string>& list)
{
    json_t* array = json_array();
    for (const std::string& entry : list)
        json_array_append_new(array, json_string(entry.c_str()));
    json_object_set_new(object, key, array);
}

void print(const Record& record)
{
    json_t* object = json_object();
    setText(object, "hostId", record.uuid);
    setText(object, "hostName", record.hostName);
    for (std::size_t i = 0; i < TEXTS_BEFORE_LISTS.size(); ++i)
        setText(object, TEXTS_BEFORE_LISTS[i], record.textsBeforeLists[i]);
    for (std::size_t i = 0; i < JOINED_LISTS.size(); ++i)
        setJoinedList(object, JOINED_LISTS[i], record.joinedLists[i]);
    for (std::size_t i = 0; i < TEXTS_AFTER_LISTS.size(); ++i)
        setText(object, TEXTS_AFTER_LISTS[i], record.textsAfterLists[i]);
    for (std::size_t i = 0; i < ARRAYS.size(); ++i)
        setArray(object, ARRAYS[i], record.arrays[i]);
    json_object_set_new(object, "isSecureEnabled", json_boolean(record.isSecureEnabled));
    for (std::size_t i = 0; i < LAST_TEXTS.size(); ++i)
        setText(object, LAST_TEXTS[i], record.lastTexts[i]);
    if (!record.machineTquType.empty())
        setText(object, OPTIONAL_TEXT, record.machineTquType);
    char* text = json_dumps(object, JSON_COMPACT);
    std::fputs(text, stdout);
    std::free(text);
    json_decref(object);
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 7) {
        std::fprintf(stderr, "usage: bare-list URL AUTHORITY CERTIFICATE KEY TOKEN LOG\n");
        return 2;
    }
    const int log = open(argv[6], O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    std::string body;
    if (log < 0 || !fetch(argv, body))
        return 1;
    const std::string text = "[" + body + "]";
    json_error_t error;
    const json_t* tree = json_loads(text.c_str(), 0, &error);
    json_t* hosts = json_object_get(json_array_get(tree, 0), "hosts");
    std::vector<Record> records;
    for (std::size_t number = 0; number < json_array_size(hosts); ++number)
        records.push_back(readRecord(json_array_get(hosts, number), number, log));
    json_decref(hosts);
    std::fputs("{\"hosts\":[", stdout);
    const char* separator = "";
    for (const Record& record : records) {
        std::fputs(separator, stdout);
        print(record);
        std::fputs("\n", stdout);
        separator = ", ";
    }
    std::fputs("]}\n", stdout);
    return records.empty() ? 1 : 0;
}
