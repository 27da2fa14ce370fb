#include "masterd/names.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(IsHostName, AcceptsWhatHostsAreCalled)
{
    for (const std::string& name : {std::string("a"), std::string("h1.example"), std::string("UPPER-case_9"),
                                    std::string("_x"), std::string("10.0.0.1"), std::string(253, 'a')})
        EXPECT_TRUE(masterd::isHostName(name)) << name;
}

TEST(IsHostName, RefusesWhatCouldBeReadAsSomethingElse)
{
    for (const std::string& name :
         {std::string(), std::string(254, 'a'), std::string(".a"), std::string("a."), std::string("-a"),
          std::string("a-"), std::string("a b"), std::string("a/b"), std::string("a,DNS:b"),
          std::string("*.example"), std::string("a\0b", 3), std::string("a\n"), std::string("h\xc3\xb6st"),
          std::string("a\"b"), std::string("fe80::1")})
        EXPECT_FALSE(masterd::isHostName(name)) << name;
}

} // namespace
