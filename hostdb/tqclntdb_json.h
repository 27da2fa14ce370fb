/// The one wrapper over JSON values: builds the text of a record and reads records out of replies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <jansson.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace TQCLNTDB {

/// Thrown by getJSONintoString; what() is "m_json is null" or "json_str_ptr is null".
class JSONTextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Either an object that is being built, or an array of records (objects) that is being read: each getter
/// takes a key and a zero-based record number. A single object is wrapped in "[" and "]" by the caller, who
/// then finds it as record 0.
///
/// Getters and LoadJSON write one entry and return false for bad data. All but GetBooleanValue, which sets
/// its output to false first, leave the output as it was then. None of them throws, but for GetObjectValue at
/// an array element that is not a string.
class JSONConverter {
public:
    /// Starts as an empty object.
    JSONConverter();
    JSONConverter(const JSONConverter&) = delete;
    JSONConverter& operator=(const JSONConverter&) = delete;
    ~JSONConverter();

    /// Stores a value under a key of the object, in place of an earlier one; each returns 0. A text that is
    /// not UTF-8 is left out. The json_t form takes over the caller's reference.
    int convertToJSONObject(const char* key, const char* value);
    int convertToJSONObject(const char* key, json_t* value);
    int convertToJSONObject(const char* key, bool value);

    /// A new array of strings, in list order, without those that are not UTF-8; the reference is the
    /// caller's.
    json_t* ConvertVectorToJSONArray(std::vector<std::string> list);

    /// Compact text of the value. Throws JSONTextError when there is none.
    std::string getJSONintoString();

    /// Parses a text. True only when it parses and its top level is an array; the parsed value (null when it
    /// did not parse) replaces the held one in either case. The value held before is deliberately not
    /// released.
    bool LoadJSON(const char* text);

    /// Entries of the held array; 0 when it is none.
    std::size_t GetNumberOfRecords();

    /// A string. A missing or mistyped one is false when mandatory; else true with `out` untouched.
    bool GetStringValue(std::string& out, const char* key, std::size_t rec, bool isMandatory);

    /// An integer, cut to its low 32 bits.
    bool GetIntegerValue(std::int32_t& out, const char* key, std::size_t rec);

    /// true or false.
    bool GetBooleanValue(bool& out, const char* key, std::size_t rec);

    /// An array of strings, appended to `out`. Throws std::logic_error, without an entry, at an element that
    /// is not a string; the elements before it are then appended.
    bool GetObjectValue(std::vector<std::string>& out, const char* key, std::size_t rec);

    /// Descends: the array under the key becomes the held value, as a borrowed reference. The document around
    /// it is deliberately never released, since it keeps its own pointer to the array.
    bool GetObject(const char* key, std::size_t rec);

private:
    json_t* m_json;
};

} // namespace TQCLNTDB
