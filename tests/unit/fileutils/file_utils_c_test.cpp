#include "fileutils/file_utils_c.h"

#include "fileutils/file_utils.h"
#include "tests/fakes/platform/fake_platform.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

extern "C" int shredFromC(const char* path);

namespace {

class FileUtilsWrappers : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        std::ofstream(path_) << "secret";
    }
    void TearDown() override { std::filesystem::remove(path_); }

    const std::string path_ = testing::TempDir() + "wrapped";
};

TEST_F(FileUtilsWrappers, ACallerInCShredsAFile)
{
    EXPECT_EQ(shredFromC(path_.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(FileUtilsWrappers, TheObjectIsNotUsed)
{
    EXPECT_EQ(FileUtils_shredFile(nullptr, path_.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(FileUtilsWrappers, TheStatusIsThatOfTheOperation)
{
    EXPECT_EQ(shredFromC((path_ + ".absent").c_str()), 142);
    EXPECT_TRUE(fakes::platform().logged(2, "Received file <" + path_ + ".absent>", "FileUtils::shredFile"));
}

TEST_F(FileUtilsWrappers, ANullPathCountsAsAnEmptyOne)
{
    EXPECT_EQ(shredFromC(nullptr), 142);
    EXPECT_TRUE(fakes::platform().logged(2, "Received file <>", "FileUtils::shredFile"));
}

TEST_F(FileUtilsWrappers, CreateGivesAnObjectThatReleaseTakesBack)
{
    FileUtils* object = FileUtils_create();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(sizeof(*object), 1U) << "the class holds no data";
    FileUtils_release(object);
    FileUtils_release(nullptr);
}

} // namespace
