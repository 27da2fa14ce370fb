#include "masterd/host_record.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace masterd {

namespace {

enum class ValueType { string, strings, boolean };

struct KnownKey {
    const char* name;
    ValueType type;
    bool identifying = false; ///< comes from the certificate, whatever the body says
};

constexpr std::array<KnownKey, 20> KNOWN_KEYS{{
    {"uuid", ValueType::string, true},
    {"hostId", ValueType::string, true},
    {"hostName", ValueType::string, true},
    {"masterServer", ValueType::string},
    {"osType", ValueType::string},
    {"osVersion", ValueType::string},
    {"osReleaseVersion", ValueType::string},
    {"installedHFXs", ValueType::string},
    {"installedPackages", ValueType::string},
    {"kqUpdatePlatform", ValueType::string},
    {"hwDescription", ValueType::string},
    {"cpuArchitecture", ValueType::string},
    {"tquVersion", ValueType::string},
    {"trustVersion", ValueType::string},
    {"machineType", ValueType::string},
    {"hypervisorType", ValueType::string},
    {"machineTquType", ValueType::string},
    {"servers", ValueType::strings},
    {"clusterSharedNames", ValueType::strings},
    {"isSecureEnabled", ValueType::boolean},
}};

const KnownKey* findKnownKey(const char* name)
{
    const auto* const found = std::find_if(KNOWN_KEYS.begin(), KNOWN_KEYS.end(), [&](const KnownKey& key) {
        return std::strcmp(key.name, name) == 0;
    });
    return found != KNOWN_KEYS.end() ? found : nullptr;
}

bool isArrayOfStrings(const json_t* value)
{
    if (!json_is_array(value))
        return false;
    for (std::size_t i = 0; i < json_array_size(value); ++i) {
        if (!json_is_string(json_array_get(value, i)))
            return false;
    }
    return true;
}

/// What a value is not; null when it is of the type.
const char* typeFault(const json_t* value, ValueType type)
{
    switch (type) {
    case ValueType::string:
        return json_is_string(value) ? nullptr : "is not a string";
    case ValueType::strings:
        return isArrayOfStrings(value) ? nullptr : "is not an array of strings";
    case ValueType::boolean:
        return json_is_boolean(value) ? nullptr : "is neither true nor false";
    }
    return nullptr;
}

void setKey(json_t& object, const char* key, json_t* newValue)
{
    if (json_object_set_new(&object, key, newValue) != 0)
        throw std::runtime_error("no memory for a host record");
}

} // namespace

tq::JsonRef parseBodyObject(std::string_view body, std::string& fault)
{
    json_error_t error{};
    tq::JsonRef document(json_loadb(body.data(), body.size(), 0, &error));
    if (!document)
        fault = "the body is not JSON: " + std::string(error.text);
    else if (!json_is_object(document.get()))
        fault = "the body is not a JSON object";
    else
        return document;
    return nullptr;
}

ComposedRecord composeHostRecord(std::string_view body, const Identity& identity)
{
    std::string bodyFault;
    const tq::JsonRef document = parseBodyObject(body, bodyFault);
    if (!document)
        return {"", bodyFault};

    const tq::JsonRef record(json_object());
    setKey(*record, "uuid", json_string(identity.hostId.c_str()));
    setKey(*record, "hostName", json_string(identity.hostName.c_str()));
    const char* name = nullptr;
    json_t* value = nullptr;
    json_object_foreach(document.get(), name, value)
    {
        const KnownKey* known = findKnownKey(name);
        if (known == nullptr)
            continue;
        if (const char* fault = typeFault(value, known->type); fault != nullptr)
            return {"", "\"" + std::string(name) + "\" " + fault};
        if (!known->identifying)
            setKey(*record, name, json_incref(value));
    }
    const tq::JsonText text(json_dumps(record.get(), JSON_COMPACT));
    if (!text)
        throw std::runtime_error("no memory for a host record");
    return {text.get(), ""};
}

} // namespace masterd
