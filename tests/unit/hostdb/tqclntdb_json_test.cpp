#include "hostdb/tqclntdb_json.h"

#include "platform/json.h"
#include "tests/fakes/platform/fake_platform.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <string>
#include <vector>

using fakes::LogEntry;
using fakes::platform;
using testing::ElementsAre;
using testing::IsEmpty;
using TQCLNTDB::JSONConverter;
using TQCLNTDB::JSONTextError;

namespace {

constexpr int PROGRESS = 2;
constexpr int ERROR = 16;
constexpr const char* NULL_KEY = nullptr;

class Converter : public testing::Test {
protected:
    void SetUp() override { fakes::reset(); }

    JSONConverter converter;
};

/// Counts the blocks that jansson holds while this object lives.
class CountedJsonBlocks {
public:
    CountedJsonBlocks()
    {
        count = 0;
        json_set_alloc_funcs(allocate, release);
    }
    CountedJsonBlocks(const CountedJsonBlocks&) = delete;
    CountedJsonBlocks& operator=(const CountedJsonBlocks&) = delete;
    ~CountedJsonBlocks() { json_set_alloc_funcs(std::malloc, std::free); }

    [[nodiscard]] static long live() { return count; }

private:
    static void* allocate(std::size_t size)
    {
        ++count;
        return std::malloc(size);
    }
    static void release(void* block)
    {
        count -= block ? 1 : 0;
        std::free(block);
    }

    static inline long count = 0;
};

class Building : public Converter {};
class Text : public Converter {};
class Loading : public Converter {};
class Reading : public Converter {};

// Building

TEST_F(Building, FreshConverterIsAnEmptyObject)
{
    EXPECT_EQ(converter.getJSONintoString(), "{}");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Building, StoresEachKindOfValueCompactlyAndReturnsZero)
{
    EXPECT_EQ(converter.convertToJSONObject("name", "h1"), 0);
    EXPECT_EQ(converter.convertToJSONObject("on", true), 0);
    EXPECT_EQ(converter.convertToJSONObject("off", false), 0);
    EXPECT_EQ(converter.convertToJSONObject("number", json_integer(7)), 0);
    EXPECT_EQ(converter.convertToJSONObject("list", converter.ConvertVectorToJSONArray({"b", "a"})), 0);
    EXPECT_EQ(converter.getJSONintoString(),
              R"({"name":"h1","on":true,"off":false,"number":7,"list":["b","a"]})");
}

TEST_F(Building, LaterValueReplacesAnEarlierOneOfTheSameKey)
{
    converter.convertToJSONObject("key", "first");
    converter.convertToJSONObject("key", true);
    EXPECT_EQ(converter.getJSONintoString(), R"({"key":true})");
}

TEST_F(Building, EmptyListGivesAnEmptyArray)
{
    converter.convertToJSONObject("list", converter.ConvertVectorToJSONArray({}));
    EXPECT_EQ(converter.getJSONintoString(), R"({"list":[]})");
}

TEST_F(Building, TakesOverTheReferenceOfAValue)
{
    json_t* value = json_string("x");
    const tq::JsonRef mine(json_incref(value));
    {
        JSONConverter owner;
        owner.convertToJSONObject("key", value);
        EXPECT_EQ(mine->refcount, 2U);
    }
    EXPECT_EQ(mine->refcount, 1U);
}

TEST_F(Building, ArrayBelongsToTheCaller)
{
    const tq::JsonRef array(converter.ConvertVectorToJSONArray({"a", ""}));
    ASSERT_EQ(json_array_size(array.get()), 2U);
    EXPECT_EQ(array->refcount, 1U);
    EXPECT_STREQ(json_string_value(json_array_get(array.get(), 1)), "");
    EXPECT_EQ(converter.getJSONintoString(), "{}");
}

TEST_F(Building, TextThatIsNotUtf8IsLeftOutSilentlyWithZero)
{
    EXPECT_EQ(converter.convertToJSONObject("bad", "\xff\xfe"), 0);
    EXPECT_EQ(converter.convertToJSONObject("overlong", "\xc0\xaf"), 0);
    EXPECT_EQ(converter.convertToJSONObject("list", converter.ConvertVectorToJSONArray({"a", "\xff", "b"})),
              0);
    EXPECT_EQ(converter.getJSONintoString(), R"({"list":["a","b"]})");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Building, NullValuesAreLeftOutWithZero)
{
    EXPECT_EQ(converter.convertToJSONObject("text", static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(converter.convertToJSONObject("value", static_cast<json_t*>(nullptr)), 0);
    EXPECT_EQ(converter.convertToJSONObject(NULL_KEY, "value"), 0);
    EXPECT_EQ(converter.getJSONintoString(), "{}");
}

TEST_F(Building, ControlCharactersAndQuotesAreEscaped)
{
    converter.convertToJSONObject("key", "a\"b\\c\n\x01");
    EXPECT_EQ(converter.getJSONintoString(), R"({"key":"a\"b\\c\n\u0001"})");
}

// getJSONintoString

TEST_F(Text, NoValueIsLoggedAndThrown)
{
    ASSERT_FALSE(converter.LoadJSON("{"));
    platform().log.clear();
    try {
        converter.getJSONintoString();
        FAIL() << "nothing thrown";
    } catch (const JSONTextError& error) {
        EXPECT_STREQ(error.what(), "m_json is null");
    }
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "Invalid JSON !", "JSONConverter::getJSONintoString"}));
}

TEST_F(Text, RefusedDumpIsLoggedAndThrown)
{
    json_t* outer = json_object();
    json_t* inner = json_object();
    json_object_set(outer, "inner", inner);
    json_object_set(inner, "outer", outer); // a circle cannot be written as text
    converter.convertToJSONObject("outer", outer);
    try {
        converter.getJSONintoString();
        ADD_FAILURE() << "nothing thrown";
    } catch (const JSONTextError& error) {
        EXPECT_STREQ(error.what(), "json_str_ptr is null");
    }
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{ERROR, "json_dumps() returned NULL string",
                                                     "JSONConverter::getJSONintoString"}));
    json_object_clear(inner);
    json_decref(inner);
}

TEST_F(Text, LoadedArrayIsWrittenCompactly)
{
    ASSERT_TRUE(converter.LoadJSON(" [ { \"b\" : 1 , \"a\" : [ ] } ] "));
    EXPECT_EQ(converter.getJSONintoString(), R"([{"b":1,"a":[]}])");
}

// LoadJSON

TEST_F(Loading, ArrayLoadsAndCountsItsRecords)
{
    EXPECT_TRUE(converter.LoadJSON("[]"));
    EXPECT_EQ(converter.GetNumberOfRecords(), 0U);
    EXPECT_TRUE(converter.LoadJSON(R"([{"a":"1"},{"a":"2"},3])"));
    EXPECT_EQ(converter.GetNumberOfRecords(), 3U);
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Loading, SingleObjectLoadsOnlyWhenWrapped)
{
    const std::string body = R"({"uuid":"1"})";
    EXPECT_FALSE(converter.LoadJSON(body.c_str()));
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "json_is_array() failed as JSON string is invalid:" + body + "\n",
                                     "JSONConverter::LoadJSON"}));
    EXPECT_EQ(converter.getJSONintoString(), body) << "the parsed value is kept";
    EXPECT_EQ(converter.GetNumberOfRecords(), 0U);

    EXPECT_TRUE(converter.LoadJSON(("[" + body + "]").c_str()));
    EXPECT_EQ(converter.GetNumberOfRecords(), 1U);
}

TEST_F(Loading, DamagedTextsAreLoggedAndLeaveNoValue)
{
    const std::vector<std::string> texts{"",
                                         " ",
                                         "[",
                                         "[{]",
                                         "[1,]",
                                         "nul",
                                         "\"text\"",
                                         "7",
                                         "null",
                                         "[] []",
                                         "[1] x",
                                         "\xEF\xBB\xBF[]",
                                         "// c\n[]",
                                         "[\"\xff\"]",
                                         "[\"\xed\xa0\x80\"]",
                                         R"(["\ud800"])",
                                         R"(["\u0000"])",
                                         "[1e999]",
                                         std::string(100000, '['),
                                         std::string(2049, '[') + std::string(2049, ']')};
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 40));
        fakes::reset();
        JSONConverter fresh;
        EXPECT_FALSE(fresh.LoadJSON(text.c_str()));
        EXPECT_EQ(fresh.GetNumberOfRecords(), 0U);
        EXPECT_THAT(platform().log, ElementsAre(LogEntry{ERROR, "load_json() failed:" + text + "\n",
                                                         "JSONConverter::LoadJSON"}));
    }
}

TEST_F(Loading, NullTextIsRefusedAndEndsTheEntryAfterItsPrefix)
{
    EXPECT_FALSE(converter.LoadJSON(nullptr));
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "load_json() failed:", "JSONConverter::LoadJSON"}));
}

TEST_F(Loading, TenMegabytesOnOneLineLoad)
{
    const std::string value(10U << 20, 'x');
    ASSERT_TRUE(converter.LoadJSON((R"([{"key":")" + value + R"("}])").c_str()));
    std::string out;
    EXPECT_TRUE(converter.GetStringValue(out, "key", 0, true));
    EXPECT_EQ(out, value);
}

TEST_F(Loading, OfADoubledKeyTheLastHolds)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"key":"a","key":"b"}])"));
    std::string out;
    EXPECT_TRUE(converter.GetStringValue(out, "key", 0, true));
    EXPECT_EQ(out, "b");
}

TEST_F(Loading, ValueHeldBeforeIsDeliberatelyNotReleased)
{
    const CountedJsonBlocks blocks;
    {
        JSONConverter building;
        JSONConverter reading;
        ASSERT_TRUE(reading.LoadJSON("[]"));
    }
    const long emptyObject = blocks.live();
    EXPECT_GT(emptyObject, 0) << "the empty object of the constructor stays";
    {
        JSONConverter reading;
        ASSERT_TRUE(reading.LoadJSON("[]"));
        ASSERT_TRUE(reading.LoadJSON("[]"));
    }
    EXPECT_GT(blocks.live(), 2 * emptyObject) << "and so does an earlier document";
}

// The getters

/// One getter as the common rules see it.
struct Getter {
    std::string name;
    std::string refusal; ///< what an entry about a missing or mistyped value begins with
    std::function<bool(JSONConverter&, const char*, std::size_t)> get;
};

std::vector<Getter> getters()
{
    return {
        {"GetStringValue", "Invalid JSON string for key and rec num:",
         [](JSONConverter& json, const char* key, std::size_t rec) {
             std::string out = "before";
             const bool result = json.GetStringValue(out, key, rec, true);
             EXPECT_EQ(out, "before");
             return result;
         }},
        {"GetIntegerValue", "Invalid JSON integer for key and rec num:",
         [](JSONConverter& json, const char* key, std::size_t rec) {
             std::int32_t out = -5;
             const bool result = json.GetIntegerValue(out, key, rec);
             EXPECT_EQ(out, -5);
             return result;
         }},
        {"GetBooleanValue", "Invalid JSON boolean for key and rec num:",
         [](JSONConverter& json, const char* key, std::size_t rec) {
             bool out = true;
             const bool result = json.GetBooleanValue(out, key, rec);
             EXPECT_FALSE(out) << "false after every failure";
             return result;
         }},
        {"GetObjectValue", "Invalid JSON array for key and rec num:",
         [](JSONConverter& json, const char* key, std::size_t rec) {
             std::vector<std::string> out{"before"};
             const bool result = json.GetObjectValue(out, key, rec);
             EXPECT_THAT(out, ElementsAre("before"));
             return result;
         }},
        {"GetObject", "Invalid JSON array for key and rec num:",
         [](JSONConverter& json, const char* key, std::size_t rec) {
             const std::size_t before = json.GetNumberOfRecords();
             const bool result = json.GetObject(key, rec);
             EXPECT_EQ(json.GetNumberOfRecords(), before) << "the held value stays";
             return result;
         }},
    };
}

TEST_F(Reading, RecordThatIsMissingOrNoObjectIsLogged)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"key":{}},"text"])"));
    for (const Getter& getter : getters()) {
        for (const std::size_t rec : {std::size_t{1}, std::size_t{2}, std::size_t{4000000000U}}) {
            SCOPED_TRACE(getter.name + " " + std::to_string(rec));
            platform().log.clear();
            EXPECT_FALSE(getter.get(converter, "key", rec));
            EXPECT_THAT(
                platform().log,
                ElementsAre(LogEntry{
                    ERROR, "Invalid JSON data object for key and rec num:key," + std::to_string(rec) + "\n",
                    "JSONConverter::" + getter.name}));
        }
    }
}

TEST_F(Reading, ValueThatIsNoArrayHasNoRecords)
{
    JSONConverter bareObject;
    ASSERT_FALSE(bareObject.LoadJSON(R"({"key":"value"})"));
    JSONConverter noValue;
    ASSERT_FALSE(noValue.LoadJSON("{"));
    for (JSONConverter* held : {&converter, &bareObject, &noValue}) {
        EXPECT_EQ(held->GetNumberOfRecords(), 0U);
        for (const Getter& getter : getters()) {
            SCOPED_TRACE(getter.name);
            platform().log.clear();
            EXPECT_FALSE(getter.get(*held, "key", 0));
            EXPECT_THAT(platform().log,
                        ElementsAre(LogEntry{ERROR, "Invalid JSON data object for key and rec num:key,0\n",
                                             "JSONConverter::" + getter.name}));
        }
    }
}

TEST_F(Reading, MissingOrMistypedValueIsLogged)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"object":{},"null":null,"real":1.5,"array":[],"string":"s",)"
                                   R"("integer":1,"true":true}])"));
    const std::map<std::string, std::vector<std::string>> refused{
        {"GetStringValue", {"missing", "object", "null", "real", "array", "integer", "true"}},
        {"GetIntegerValue", {"missing", "object", "null", "real", "array", "string", "true"}},
        {"GetBooleanValue", {"missing", "object", "null", "real", "array", "string", "integer"}},
        {"GetObjectValue", {"missing", "object", "null", "real", "string", "integer", "true"}},
        {"GetObject", {"missing", "object", "null", "real", "string", "integer", "true"}},
    };
    for (const Getter& getter : getters()) {
        for (const std::string& key : refused.at(getter.name)) {
            SCOPED_TRACE(getter.name + " " + key);
            platform().log.clear();
            EXPECT_FALSE(getter.get(converter, key.c_str(), 0));
            EXPECT_THAT(platform().log, ElementsAre(LogEntry{ERROR, getter.refusal + key + ",0\n",
                                                             "JSONConverter::" + getter.name}));
        }
    }
}

TEST_F(Reading, NullKeyEndsTheEntryAfterItsPrefix)
{
    ASSERT_TRUE(converter.LoadJSON("[{}]"));
    for (const Getter& getter : getters()) {
        SCOPED_TRACE(getter.name);
        platform().log.clear();
        EXPECT_FALSE(getter.get(converter, nullptr, 0));
        EXPECT_FALSE(getter.get(converter, nullptr, 1));
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{ERROR, getter.refusal, "JSONConverter::" + getter.name},
                                LogEntry{ERROR, "Invalid JSON data object for key and rec num:",
                                         "JSONConverter::" + getter.name}));
    }
}

TEST_F(Reading, StringIsAssigned)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"key":"\u00e4 \"x\""},{"key":""}])"));
    std::string out = "before";
    EXPECT_TRUE(converter.GetStringValue(out, "key", 0, true));
    EXPECT_EQ(out, "\xc3\xa4 \"x\"");
    EXPECT_TRUE(converter.GetStringValue(out, "key", 1, false));
    EXPECT_EQ(out, "");
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Reading, AbsentOptionalStringCountsAsSuccess)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{},{"null":null,"number":7}])"));
    std::string out = "before";
    EXPECT_TRUE(converter.GetStringValue(out, "missing", 0, false));
    EXPECT_TRUE(converter.GetStringValue(out, "null", 1, false));
    EXPECT_TRUE(converter.GetStringValue(out, "number", 1, false));
    EXPECT_EQ(out, "before");
    constexpr const char* CONTEXT = "JSONConverter::GetStringValue";
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{PROGRESS, "No value found for key and rec num:missing,0\n", CONTEXT},
                            LogEntry{PROGRESS, "No value found for key and rec num:null,1\n", CONTEXT},
                            LogEntry{PROGRESS, "No value found for key and rec num:number,1\n", CONTEXT}));
}

TEST_F(Reading, OptionalStringWithANullKeyIsASuccessWhoseEntryEndsAfterItsPrefix)
{
    ASSERT_TRUE(converter.LoadJSON("[{}]"));
    std::string out = "before";
    EXPECT_TRUE(converter.GetStringValue(out, nullptr, 0, false));
    EXPECT_EQ(out, "before");
    EXPECT_THAT(platform().log, ElementsAre(LogEntry{PROGRESS, "No value found for key and rec num:",
                                                     "JSONConverter::GetStringValue"}));
}

TEST_F(Reading, OptionalStringOfAMissingRecordIsAFailure)
{
    ASSERT_TRUE(converter.LoadJSON("[]"));
    std::string out = "before";
    EXPECT_FALSE(converter.GetStringValue(out, "key", 0, false));
    EXPECT_EQ(out, "before");
    EXPECT_THAT(platform().log,
                ElementsAre(LogEntry{ERROR, "Invalid JSON data object for key and rec num:key,0\n",
                                     "JSONConverter::GetStringValue"}));
}

TEST_F(Reading, IntegerIsCutToItsLow32Bits)
{
    const std::vector<std::pair<std::string, std::int32_t>> rows{
        {"0", 0},
        {"-1", -1},
        {"2147483647", 2147483647},
        {"2147483648", std::numeric_limits<std::int32_t>::min()},
        {"4294967296", 0},
        {"4294967301", 5},
        {"9223372036854775807", -1},
        {"-9223372036854775808", 0},
    };
    for (const auto& [text, value] : rows) {
        SCOPED_TRACE(text);
        JSONConverter fresh;
        ASSERT_TRUE(fresh.LoadJSON((R"([{"key":)" + text + "}]").c_str()));
        std::int32_t out = 77;
        EXPECT_TRUE(fresh.GetIntegerValue(out, "key", 0));
        EXPECT_EQ(out, value);
    }
}

TEST_F(Reading, BooleanIsTrueOrFalse)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"yes":true,"no":false}])"));
    bool out = false;
    EXPECT_TRUE(converter.GetBooleanValue(out, "yes", 0));
    EXPECT_TRUE(out);
    EXPECT_TRUE(converter.GetBooleanValue(out, "no", 0));
    EXPECT_FALSE(out);
}

TEST_F(Reading, ArrayIsAppendedEachTime)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"list":["b","a",""]}])"));
    std::vector<std::string> out;
    EXPECT_TRUE(converter.GetObjectValue(out, "list", 0));
    EXPECT_TRUE(converter.GetObjectValue(out, "list", 0));
    EXPECT_THAT(out, ElementsAre("b", "a", "", "b", "a", ""));
}

TEST_F(Reading, ArrayElementThatIsNoStringThrowsAfterTheOnesBeforeItAreAppended)
{
    for (const std::string element : {"7", "null", "true", "{}", "[\"x\"]"}) {
        SCOPED_TRACE(element);
        JSONConverter fresh;
        ASSERT_TRUE(fresh.LoadJSON((R"([{"list":["a",)" + element + R"(,"b"]}])").c_str()));
        std::vector<std::string> out{"before"};
        try {
            fresh.GetObjectValue(out, "list", 0);
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::logic_error& error) {
            EXPECT_STREQ(error.what(), "JSON array holds an element that is not a string");
        }
        EXPECT_THAT(out, ElementsAre("before", "a"));
    }
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(Reading, GetObjectDescendsIntoTheArray)
{
    ASSERT_TRUE(converter.LoadJSON(R"([{"hosts":[{"hostName":"a"},{"hostName":"b"}]}])"));
    EXPECT_EQ(converter.GetNumberOfRecords(), 1U);
    ASSERT_TRUE(converter.GetObject("hosts", 0));
    EXPECT_EQ(converter.GetNumberOfRecords(), 2U);
    std::string out;
    EXPECT_TRUE(converter.GetStringValue(out, "hostName", 1, true));
    EXPECT_EQ(out, "b");
    EXPECT_FALSE(converter.GetStringValue(out, "hostName", 2, true));
    EXPECT_EQ(converter.getJSONintoString(), R"([{"hostName":"a"},{"hostName":"b"}])");
}

TEST_F(Reading, DocumentAroundADescentIsDeliberatelyNeverReleased)
{
    const char* const text = R"([{"hosts":[]}])";
    const CountedJsonBlocks blocks;
    {
        JSONConverter reading;
        ASSERT_TRUE(reading.LoadJSON(text));
    }
    const long emptyObject = blocks.live();
    {
        JSONConverter reading;
        ASSERT_TRUE(reading.LoadJSON(text));
        ASSERT_TRUE(reading.GetObject("hosts", 0));
    }
    EXPECT_GT(blocks.live(), 2 * emptyObject);
}

TEST_F(Reading, DescentReleasesTheNestedArrayWithAllItHoldsAndNothingElse)
{
    std::string fiftyTexts = R"("text 0")";
    for (int i = 1; i < 50; ++i)
        fiftyTexts += ",\"text " + std::to_string(i) + '"';
    const CountedJsonBlocks blocks;
    std::vector<long> left;
    for (const std::string& entries : {std::string(), fiftyTexts}) {
        const long before = blocks.live();
        {
            JSONConverter reading;
            ASSERT_TRUE(reading.LoadJSON((R"([{"hosts":[)" + entries + "]}]").c_str()));
            ASSERT_TRUE(reading.GetObject("hosts", 0));
        }
        left.push_back(blocks.live() - before);
    }
    EXPECT_EQ(left[0], left[1]) << "what is left is the document around the array";
}

} // namespace
