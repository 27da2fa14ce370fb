#include "platform/server_name.h"

#include <gtest/gtest.h>
#include <string>

TEST(ServerName, TakesNamesAndAddresses)
{
    for (const std::string& name :
         {std::string("master1.example"), std::string("m"), std::string("10.0.0.1"), std::string("fe80::1"),
          std::string("Daemon"), std::string("daemon1"), std::string("a..b"), std::string("m."),
          std::string("m\xC3\xBCnchen.example"), std::string(253, 'a')})
        EXPECT_EQ(tq::serverNameFault(name), nullptr) << name;
}

TEST(ServerName, EachRefusalHasItsReason)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "it is empty"},
        {std::string(254, 'a'), "it is longer than 253 characters"},
        {".", "it begins with a dot"},
        {"..", "it begins with a dot"},
        {".hidden", "it begins with a dot"},
        {"a/b", "it holds a slash"},
        {"/etc/passwd", "it holds a slash"},
        {"a b", "it holds white space"},
        {" a", "it holds white space"},
        {"a\t", "it holds white space"},
        {"a\n", "it holds white space"},
        {"a\r", "it holds white space"},
        {std::string("a\0b", 3), "it holds a control character"},
        {"a\x01", "it holds a control character"},
        {"a\x1B[2J", "it holds a control character"},
        {"a\x7F", "it holds a control character"},
        {"daemon", "it is the name of the daemon's lock"},
    };
    for (const auto& [name, fault] : cases) {
        const char* found = tq::serverNameFault(name);
        EXPECT_EQ(std::string(found ? found : "(good)"), fault) << name;
    }
}
