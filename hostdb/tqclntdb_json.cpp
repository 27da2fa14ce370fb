#include "hostdb/tqclntdb_json.h"

#include "platform/debuglog.h"
#include "platform/json.h"

namespace TQCLNTDB {
namespace {

/// Writes one entry about a key of a record. A null key ends the text after the prefix.
void logKey(LogLevel level, const char* context, const char* prefix, const char* key, std::size_t rec)
{
    LogLine(level, context) << prefix << key << ',' << rec << '\n';
}

/// Record `rec` of an array of records. Null, after one entry, when there is none or it is no object.
const json_t* recordAt(const json_t* records, const char* key, std::size_t rec, const char* context)
{
    const json_t* record = json_array_get(records, rec);
    if (json_is_object(record))
        return record;
    logKey(LogLevel::error, context, "Invalid JSON data object for key and rec num:", key, rec);
    return nullptr;
}

/// The array under a key of a record. Null, after one entry, when there is none.
json_t* arrayAt(const json_t* records, const char* key, std::size_t rec, const char* context)
{
    const json_t* record = recordAt(records, key, rec, context);
    if (!record)
        return nullptr;
    json_t* array = json_object_get(record, key);
    if (json_is_array(array))
        return array;
    logKey(LogLevel::error, context, "Invalid JSON array for key and rec num:", key, rec);
    return nullptr;
}

} // namespace

JSONConverter::JSONConverter() : m_json(json_object()) {}

JSONConverter::~JSONConverter()
{
    json_decref(m_json);
}

int JSONConverter::convertToJSONObject(const char* key, const char* value)
{
    return convertToJSONObject(key, json_string(value));
}

int JSONConverter::convertToJSONObject(const char* key, json_t* value)
{
    // A value that the library refuses is left out without a word: the record travels without it.
    json_object_set_new(m_json, key, value);
    return 0;
}

int JSONConverter::convertToJSONObject(const char* key, bool value)
{
    return convertToJSONObject(key, json_boolean(value));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as this operation has always been offered
json_t* JSONConverter::ConvertVectorToJSONArray(std::vector<std::string> list)
{
    json_t* array = json_array();
    for (const std::string& entry : list)
        json_array_append_new(array, json_string(entry.c_str()));
    return array;
}

std::string JSONConverter::getJSONintoString()
{
    constexpr const char* CONTEXT = "JSONConverter::getJSONintoString";
    if (!m_json) {
        LogLine(LogLevel::error, CONTEXT) << "Invalid JSON !";
        throw JSONTextError("m_json is null");
    }
    const tq::JsonText text(json_dumps(m_json, JSON_COMPACT));
    if (!text) {
        LogLine(LogLevel::error, CONTEXT) << "json_dumps() returned NULL string";
        throw JSONTextError("json_str_ptr is null");
    }
    return text.get();
}

bool JSONConverter::LoadJSON(const char* text)
{
    constexpr const char* CONTEXT = "JSONConverter::LoadJSON";
    json_error_t error;
    // The value held before is not released: after GetObject it belongs to the document around it.
    m_json = json_loads(text, 0, &error);
    if (!m_json) {
        LogLine(LogLevel::error, CONTEXT) << "load_json() failed:" << text << '\n';
        return false;
    }
    if (!json_is_array(m_json)) {
        LogLine(LogLevel::error, CONTEXT)
            << "json_is_array() failed as JSON string is invalid:" << text << '\n';
        return false;
    }
    return true;
}

std::size_t JSONConverter::GetNumberOfRecords()
{
    return json_array_size(m_json);
}

bool JSONConverter::GetStringValue(std::string& out, const char* key, std::size_t rec, bool isMandatory)
{
    constexpr const char* CONTEXT = "JSONConverter::GetStringValue";
    const json_t* record = recordAt(m_json, key, rec, CONTEXT);
    if (!record)
        return false;
    const json_t* value = json_object_get(record, key);
    if (json_is_string(value)) {
        out = json_string_value(value);
        return true;
    }
    if (!isMandatory) {
        logKey(LogLevel::progress, CONTEXT, "No value found for key and rec num:", key, rec);
        return true;
    }
    logKey(LogLevel::error, CONTEXT, "Invalid JSON string for key and rec num:", key, rec);
    return false;
}

bool JSONConverter::GetIntegerValue(std::int32_t& out, const char* key, std::size_t rec)
{
    constexpr const char* CONTEXT = "JSONConverter::GetIntegerValue";
    const json_t* record = recordAt(m_json, key, rec, CONTEXT);
    if (!record)
        return false;
    const json_t* value = json_object_get(record, key);
    if (!json_is_integer(value)) {
        logKey(LogLevel::error, CONTEXT, "Invalid JSON integer for key and rec num:", key, rec);
        return false;
    }
    out = static_cast<std::int32_t>(json_integer_value(value));
    return true;
}

bool JSONConverter::GetBooleanValue(bool& out, const char* key, std::size_t rec)
{
    constexpr const char* CONTEXT = "JSONConverter::GetBooleanValue";
    out = false;
    const json_t* record = recordAt(m_json, key, rec, CONTEXT);
    if (!record)
        return false;
    const json_t* value = json_object_get(record, key);
    if (!json_is_boolean(value)) {
        logKey(LogLevel::error, CONTEXT, "Invalid JSON boolean for key and rec num:", key, rec);
        return false;
    }
    out = json_is_true(value);
    return true;
}

bool JSONConverter::GetObjectValue(std::vector<std::string>& out, const char* key, std::size_t rec)
{
    constexpr const char* CONTEXT = "JSONConverter::GetObjectValue";
    const json_t* array = arrayAt(m_json, key, rec, CONTEXT);
    if (!array)
        return false;
    for (std::size_t i = 0; i < json_array_size(array); ++i) {
        const char* text = json_string_value(json_array_get(array, i));
        if (!text)
            throw std::logic_error("JSON array holds an element that is not a string");
        out.emplace_back(text);
    }
    return true;
}

bool JSONConverter::GetObject(const char* key, std::size_t rec)
{
    constexpr const char* CONTEXT = "JSONConverter::GetObject";
    json_t* array = arrayAt(m_json, key, rec, CONTEXT);
    if (!array)
        return false;
    // Borrowed, without a reference: the document around it keeps its own pointer to the array and is never
    // released, or the array would be freed twice.
    m_json = array;
    return true;
}

} // namespace TQCLNTDB
