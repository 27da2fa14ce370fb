#include "clusterinfo/trace.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace libclusterinfo;

namespace {

std::vector<std::string> lines;

void keep(const char* line)
{
    lines.emplace_back(line);
}

class TraceTest : public testing::Test {
protected:
    void SetUp() override
    {
        lines.clear();
        SetTraceFunc(keep);
    }
    void TearDown() override { SetTraceFunc(nullptr); }
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(TraceTest, EachLevelIndentsByFourBlanks)
{
    Trace(0, "a\n");
    Trace(1, "b\n");
    Trace(2, "c %d\n", 3);
    EXPECT_EQ(lines, (Lines{"a\n", "    b\n", "        c 3\n"}));
}

TEST_F(TraceTest, ALevelBelowZeroIndentsNothing)
{
    Trace(-3, "a\n");
    EXPECT_EQ(lines, Lines{"a\n"});
}

TEST_F(TraceTest, NoLineEndIsAdded)
{
    Trace(0, "a");
    EXPECT_EQ(lines, Lines{"a"});
}

TEST_F(TraceTest, AMessageIsCutAt1023BytesTheIndentComesOnTop)
{
    Trace(1, "%s\n", std::string(5000, 'x').c_str());
    EXPECT_EQ(lines, Lines{"    " + std::string(1023, 'x')});
}

TEST_F(TraceTest, WithoutAFunctionNothingIsTraced)
{
    SetTraceFunc(nullptr);
    Trace(0, "a\n");
    EXPECT_TRUE(lines.empty());
}

TEST_F(TraceTest, AScopeWritesEnterWithOneBlankAndExitWithTwo)
{
    int depth = 0;
    {
        const TraceMethod outer("Outer", &depth);
        Trace(depth, "inside\n");
        const TraceMethod inner("Inner", &depth);
        EXPECT_EQ(depth, 2);
    }
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(lines, (Lines{"[Outer] ... Enter \n", "    inside\n", "    [Inner] ... Enter \n",
                            "    [Inner] ... Exit  \n", "[Outer] ... Exit  \n"}));
}

TEST_F(TraceTest, AScopeWithoutDepthStaysAtLevelZero)
{
    {
        const TraceMethod scope("Free", nullptr);
    }
    EXPECT_EQ(lines, (Lines{"[Free] ... Enter \n", "[Free] ... Exit  \n"}));
}
