#include "utils/tqclntdb_utils.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"
#include "tests/unit/failing_read.h"
#include "tests/unit/long_line.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using fakes::LogEntry;
using fakes::platform;
using fakes::seams;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* BIN_FILE = "/usr/torqv/torquenix/bin/version";
constexpr const char* SERVER_FILE = "/usr/torqv/torquenix/version";

constexpr std::size_t BEYOND_THE_BOUND = (std::size_t{16} << 20) + 1;

void writeFile(const char* path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

class VersionTest : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
        std::filesystem::remove_all(BIN_FILE);
        std::filesystem::remove_all(SERVER_FILE);
    }

    std::string out = "old";
};

class ReadUnixTorquenixBinVersionFile : public VersionTest {
protected:
    static constexpr const char* CONTEXT = "tqclntdb_utils::readUnixTorquenixBinVersionFile";
    const LogEntry reading{4, "Reading Torquenix version file: [/usr/torqv/torquenix/bin/version].", CONTEXT};

    int read(const std::string& text)
    {
        writeFile(BIN_FILE, text);
        return read();
    }

    int read() { return tqclntdb_utils::readUnixTorquenixBinVersionFile(out); }
};

TEST_F(ReadUnixTorquenixBinVersionFile, NormalisesTheFirstLine)
{
    EXPECT_EQ(read("Torquenix-Linux_x86 9.1.0.1\nmore\n"), 0);
    EXPECT_EQ(out, "Torquenix_9.1.0.1");
    EXPECT_THAT(platform().log,
                ElementsAre(reading,
                            LogEntry{2, "Version file line: [Torquenix-Linux_x86 9.1.0.1].", CONTEXT},
                            LogEntry{2, "Raw tqInstalledVersion: [Torquenix-Linux_x86 9.1.0.1].", CONTEXT},
                            LogEntry{2, "Formatted tqInstalledVersion: [Torquenix_9.1.0.1].", CONTEXT}));
}

TEST_F(ReadUnixTorquenixBinVersionFile, PlatformWordMayHoldDashes)
{
    EXPECT_EQ(read("Torquenix-HP-UX_IA64 9.1.0.1"), 0);
    EXPECT_EQ(out, "Torquenix_9.1.0.1");
}

TEST_F(ReadUnixTorquenixBinVersionFile, OtherProductsKeepTheirName)
{
    EXPECT_EQ(read("TorquenixforOpenStack-x 1.2\n"), 0);
    EXPECT_EQ(out, "TorquenixforOpenStack_1.2");
    EXPECT_EQ(read("Frostmarch-x 2.0\n"), 0);
    EXPECT_EQ(out, "Frostmarch_2.0");
}

TEST_F(ReadUnixTorquenixBinVersionFile, TextBehindTheNumberStays)
{
    EXPECT_EQ(read("Torquenix-x 9.1 beta 2\n"), 0);
    EXPECT_EQ(out, "Torquenix_9.1 beta 2");
    EXPECT_EQ(read("Torquenix-x 9.1\r\n"), 0);
    EXPECT_EQ(out, "Torquenix_9.1\r");
    EXPECT_EQ(read(std::string("Torquenix-x 9\0001\n", 16)), 0);
    EXPECT_EQ(out, std::string("Torquenix_9\0001", 13));
}

TEST_F(ReadUnixTorquenixBinVersionFile, PlatformWordMayBeEmpty)
{
    EXPECT_EQ(read("Torquenix- 9.1\n"), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
}

TEST_F(ReadUnixTorquenixBinVersionFile, MissingFileIs7501)
{
    EXPECT_EQ(read(), 7501);
    EXPECT_EQ(out, "old");
    EXPECT_THAT(
        platform().log,
        ElementsAre(reading, LogEntry{16, "Unable to open version file: [/usr/torqv/torquenix/bin/version].",
                                      CONTEXT}));
}

TEST_F(ReadUnixTorquenixBinVersionFile, FolderFifoAndDeviceCannotBeOpened)
{
    std::filesystem::create_directory(BIN_FILE);
    EXPECT_EQ(read(), 7501) << "folder";
    std::filesystem::remove(BIN_FILE);
    ASSERT_EQ(mkfifo(BIN_FILE, 0600), 0);
    EXPECT_EQ(read(), 7501) << "fifo";
    std::filesystem::remove(BIN_FILE);
    std::filesystem::create_symlink("/dev/zero", BIN_FILE);
    EXPECT_EQ(read(), 7501) << "device";
}

TEST_F(ReadUnixTorquenixBinVersionFile, UnknownProductIs13AndLeavesTheResult)
{
    EXPECT_EQ(read("Otherproduct-x 9.1\n"), 13);
    EXPECT_EQ(out, "old");
    EXPECT_THAT(
        platform().log,
        ElementsAre(reading, LogEntry{2, "Version file line: [Otherproduct-x 9.1].", CONTEXT},
                    LogEntry{16,
                             "Invalid format for the Torquenix version: [Otherproduct-x 9.1]; does not "
                             "begin with: [Torquenix-].",
                             CONTEXT}));
}

TEST_F(ReadUnixTorquenixBinVersionFile, OnlyTheFirstLineCounts)
{
    for (const char* text : {"", "\n", "\nTorquenix-x 9.1\n", " Torquenix-x 9.1\n", "\r\n"})
        EXPECT_EQ(read(text), 13) << text;
    EXPECT_EQ(out, "old");
}

TEST_F(ReadUnixTorquenixBinVersionFile, LineWithoutABlankIs13WithAnEmptyResult)
{
    EXPECT_EQ(read("Torquenix-x\t9.1\n"), 13);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(platform().logged(
        16, "Invalid format for the Torquenix version: [Torquenix-x\t9.1]; no blank separator found.",
        CONTEXT));
}

TEST_F(ReadUnixTorquenixBinVersionFile, LineWithoutADigitBehindTheBlankIs13WithAnEmptyResult)
{
    for (const char* text : {"Torquenix-x v9.1", "Torquenix-x  9.1", "Torquenix-x ", "Torquenix-x y 9.1"}) {
        out = "old";
        EXPECT_EQ(read(text), 13) << text;
        EXPECT_EQ(out, "") << text;
    }
    EXPECT_TRUE(platform().logged(
        16, "Invalid format for the Torquenix version: [Torquenix-x v9.1]; no version number found.",
        CONTEXT));
}

TEST_F(ReadUnixTorquenixBinVersionFile, TenMegabytesOnOneLineAreOneLine)
{
    EXPECT_EQ(read("Torquenix-" + longLine('x') + " 9.1"), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
}

TEST_F(ReadUnixTorquenixBinVersionFile, OfAFileBeyond16MebibytesTheBeginningIsRead)
{
    EXPECT_EQ(read("Torquenix-x 9.1\n" + std::string(BEYOND_THE_BOUND, '#')), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
}

TEST_F(ReadUnixTorquenixBinVersionFile, ReadErrorKeepsTheLineBeforeIt)
{
    writeFile(BIN_FILE, "Torquenix-x 9.1\n" + longLine('#'));
    const ReadsFailAfter failing(1);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
}

class ReadTorquenixVersionFile : public VersionTest {
protected:
    static constexpr const char* CONTEXT = "tqclntdb_utils::readTorquenixVersionFile";

    int read(const std::string& text)
    {
        writeFile(SERVER_FILE, text);
        return tqclntdb_utils::readTorquenixVersionFile(SERVER_FILE, out);
    }
};

TEST_F(ReadTorquenixVersionFile, TakesTheFirstVersionLine)
{
    EXPECT_EQ(read("HARDWARE LINUX\nVERSION = Torquenix 9.1.0.1\nVERSION Torquenix 8.0\n"), 0);
    EXPECT_EQ(out, "Torquenix_9.1.0.1");
    EXPECT_THAT(
        platform().log,
        ElementsAre(LogEntry{2, "Called with tqVersionFilePath: [/usr/torqv/torquenix/version].", CONTEXT},
                    LogEntry{4, "Reading Torquenix version file: [/usr/torqv/torquenix/version].", CONTEXT},
                    LogEntry{2, "Version file line: [HARDWARE LINUX].", CONTEXT},
                    LogEntry{2, "Version file line: [VERSION = Torquenix 9.1.0.1].", CONTEXT},
                    LogEntry{2, "Raw tqInstalledVersion: [Torquenix 9.1.0.1].", CONTEXT},
                    LogEntry{2, "Formatted tqInstalledVersion: [Torquenix_9.1.0.1].", CONTEXT}));
}

TEST_F(ReadTorquenixVersionFile, NameMayFollowTheKeyAtOnceAndTextMayFollowTheNumber)
{
    EXPECT_EQ(read("VERSIONTorquenix 9.1 beta"), 0);
    EXPECT_EQ(out, "Torquenix_9.1 beta");
}

TEST_F(ReadTorquenixVersionFile, BinaryDirectorysFileIsReadByItsOwnOperation)
{
    seams().binVersionFile = {0, "Torquenix_9.1"};
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(BIN_FILE, out), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
    EXPECT_THAT(seams().calls, ElementsAre("readUnixTorquenixBinVersionFile"));
    EXPECT_THAT(
        platform().log,
        ElementsAre(
            LogEntry{2, "Called with tqVersionFilePath: [/usr/torqv/torquenix/bin/version].", CONTEXT},
            LogEntry{2,
                     "Called with Torquenix Unix bin version file path: "
                     "[/usr/torqv/torquenix/bin/version]. Calling readUnixTorquenixBinVersionFile()",
                     CONTEXT}));
}

TEST_F(ReadTorquenixVersionFile, FailureOfTheBinaryDirectorysFileIsLoggedAndReturned)
{
    seams().binVersionFile = {13, ""};
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(BIN_FILE, out), 13);
    EXPECT_EQ(platform().log.back(),
              (LogEntry{16, "Error occurred executing readUnixTorquenixBinVersionFile(), error status: [13].",
                        CONTEXT}));
}

TEST_F(ReadTorquenixVersionFile, OnlyThatExactPathIsTheBinaryDirectorysFile)
{
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile("/usr/torqv/torquenix//bin/version", out), 7501);
    EXPECT_THAT(seams().calls, IsEmpty());
}

TEST_F(ReadTorquenixVersionFile, MissingFileIs7501)
{
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(SERVER_FILE, out), 7501);
    EXPECT_EQ(out, "old");
    EXPECT_EQ(platform().log.back(),
              (LogEntry{16, "Unable to open version file: [/usr/torqv/torquenix/version].", CONTEXT}));
}

TEST_F(ReadTorquenixVersionFile, FolderIs7501)
{
    std::filesystem::create_directory(SERVER_FILE);
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(SERVER_FILE, out), 7501);
}

TEST_F(ReadTorquenixVersionFile, FileThatOpensButCannotBeReadHoldsNoLine)
{
    // A process's own memory opens and then refuses a read at its beginning.
    std::filesystem::create_symlink("/proc/self/mem", SERVER_FILE);
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(SERVER_FILE, out), 13);
    EXPECT_EQ(platform().log.back(),
              (LogEntry{16, "Torquenix version not found in version file: [/usr/torqv/torquenix/version].",
                        CONTEXT}));
}

TEST_F(ReadTorquenixVersionFile, OfAFileBeyond16MebibytesTheBeginningIsRead)
{
    const std::string filling(BEYOND_THE_BOUND, '#');
    EXPECT_EQ(read("VERSION Torquenix 9.1\n" + filling), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
    EXPECT_EQ(read(filling + "\nVERSION Torquenix 9.1\n"), 13) << "beyond it nothing is looked for";
}

TEST_F(ReadTorquenixVersionFile, ReadErrorKeepsTheLinesBeforeIt)
{
    writeFile(SERVER_FILE, "VERSION Torquenix 9.1\n" + longLine('#'));
    const ReadsFailAfter failing(1);
    EXPECT_EQ(tqclntdb_utils::readTorquenixVersionFile(SERVER_FILE, out), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
}

TEST_F(ReadTorquenixVersionFile, FileWithoutAVersionLineIs13)
{
    for (const char* text : {"", "\n\n", " VERSION Torquenix 9.1\n", "version Torquenix 9.1\n", "VERSIO"}) {
        EXPECT_EQ(read(text), 13) << text;
        EXPECT_EQ(
            platform().log.back(),
            (LogEntry{16, "Torquenix version not found in version file: [/usr/torqv/torquenix/version].",
                      CONTEXT}))
            << text;
    }
    EXPECT_EQ(out, "old");
}

TEST_F(ReadTorquenixVersionFile, VersionLineWithoutTheProductsNameIs13EvenIfALaterOneHasIt)
{
    EXPECT_EQ(read("VERSION Frostmarch 9.1\nVERSION Torquenix 9.1\n"), 13);
    EXPECT_EQ(out, "old");
    EXPECT_EQ(
        platform().log.back(),
        (LogEntry{16,
                  "Invalid format for the Torquenix version: [VERSION Frostmarch 9.1]; does not contain: "
                  "[Torquenix ].",
                  CONTEXT}));
    EXPECT_EQ(read("VERSION = Torquenix\n"), 13) << "the blank belongs to what is looked for";
}

TEST_F(ReadTorquenixVersionFile, VersionLineWithoutANumberIs13AndLeavesTheRawText)
{
    EXPECT_EQ(read("VERSION = Torquenix v9\n"), 13);
    EXPECT_EQ(out, "Torquenix v9");
    EXPECT_EQ(
        platform().log.back(),
        (LogEntry{16,
                  "Invalid format for the Torquenix version: [VERSION = Torquenix v9]; no version number "
                  "after: [Torquenix ].",
                  CONTEXT}));
    EXPECT_EQ(read("VERSION = Torquenix "), 13);
    EXPECT_EQ(out, "Torquenix ");
}

class GetTQInstalledVersionStr : public VersionTest {
protected:
    static constexpr const char* CONTEXT = "tqclntdb_utils::getTQInstalledVersionStr";
    const LogEntry binFailed{16,
                             "Error occurred in readTorquenixVersionFile() when reading version file: "
                             "[/usr/torqv/torquenix/bin/version], error status: [7501].",
                             CONTEXT};
    const LogEntry notAClient{2, "Host is not a Unix Torquenix client.", CONTEXT};
    const LogEntry fallback{
        4, "Failed to read the installed version from the version file. Using the static version string.",
        CONTEXT};

    int get() { return tqclntdb_utils::getTQInstalledVersionStr(out); }

    static LogEntry both(const std::string& bin, const std::string& server)
    {
        return {2,
                "tqInstalledVersion: [" + bin +
                    "]; torquenixVersionFileVersion (empty if host is a Unix client): [" + server + "]",
                CONTEXT};
    }
    static LogEntry final(const std::string& version)
    {
        return {2, "Final tqInstalledVersion: [" + version + "].", CONTEXT};
    }

    static void server(const std::string& bin, const std::string& product)
    {
        seams().unixClient = false;
        seams().versionFiles = {{BIN_FILE, {0, bin}}, {SERVER_FILE, {0, product}}};
    }
};

TEST_F(GetTQInstalledVersionStr, ClientHasTheBinaryDirectorysVersion)
{
    seams().versionFiles = {{BIN_FILE, {0, "Torquenix_9.1"}}, {SERVER_FILE, {0, "Torquenix_9.2"}}};
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
    EXPECT_THAT(platform().log, ElementsAre(final("Torquenix_9.1")));
    EXPECT_THAT(seams().calls,
                ElementsAre(std::string("readTorquenixVersionFile ") + BIN_FILE, "isHostTQUnixClient"));
}

TEST_F(GetTQInstalledVersionStr, WithoutVersionFilesTheBuiltInReleaseHoldsWithStatusZero)
{
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.1.0.1");
    EXPECT_THAT(platform().log, ElementsAre(binFailed, fallback, final("Torquenix_9.1.0.1")));
}

TEST_F(GetTQInstalledVersionStr, OnAServerTheProductFilesHigherVersionWins)
{
    server("Torquenix_9.0", "Torquenix_9.1");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
    EXPECT_THAT(platform().log,
                ElementsAre(notAClient, both("Torquenix_9.0", "Torquenix_9.1"), final("Torquenix_9.1")));
}

TEST_F(GetTQInstalledVersionStr, OnAServerTheBinaryDirectorysHigherVersionWins)
{
    server("Torquenix_9.2", "Torquenix_9.1");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.2");
}

TEST_F(GetTQInstalledVersionStr, OnAServerEqualNumbersKeepTheBinaryDirectorysVersion)
{
    server("Torquenix_9.0", "Torquenix_9.10");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.0");
}

TEST_F(GetTQInstalledVersionStr, OnAServerTheProductFileStandsInForTheBinaryDirectorys)
{
    seams().unixClient = false;
    seams().versionFiles = {{SERVER_FILE, {0, "Torquenix_8.3"}}};
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_8.3");
    EXPECT_THAT(platform().log,
                ElementsAre(binFailed, notAClient, both("", "Torquenix_8.3"), final("Torquenix_8.3")));
}

TEST_F(GetTQInstalledVersionStr, OnAServerWithoutItsOwnFileTheBinaryDirectorysVersionStays)
{
    seams().unixClient = false;
    seams().versionFiles = {{BIN_FILE, {0, "Torquenix_9.1"}}, {SERVER_FILE, {13, "Torquenix v9"}}};
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.1");
    EXPECT_THAT(
        platform().log,
        ElementsAre(notAClient,
                    LogEntry{16,
                             "Error occurred in readTorquenixVersionFile() when reading version file: "
                             "[/usr/torqv/torquenix/version], error status: [13].",
                             CONTEXT},
                    both("Torquenix_9.1", "Torquenix v9"), final("Torquenix_9.1")));
}

TEST_F(GetTQInstalledVersionStr, OnAServerWithoutFilesTheBuiltInReleaseHolds)
{
    seams().unixClient = false;
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(out, "Torquenix_9.1.0.1");
    EXPECT_THAT(seams().calls,
                ElementsAre(std::string("readTorquenixVersionFile ") + BIN_FILE, "isHostTQUnixClient",
                            std::string("readTorquenixVersionFile ") + SERVER_FILE,
                            "get_TQ_binary_version2"));
}

TEST_F(GetTQInstalledVersionStr, EmptyBuiltInReleaseIs7500)
{
    seams().binaryVersion = "";
    EXPECT_EQ(get(), 7500);
    EXPECT_EQ(out, "");
    EXPECT_THAT(platform().log,
                ElementsAre(binFailed, fallback,
                            LogEntry{16, "Empty Torquenix version static string.", CONTEXT}, final("")));
}

TEST(GetTQBinaryVersion2, IsTheReleaseOfThisBuild)
{
    EXPECT_STREQ(tqclntdb_utils::get_TQ_binary_version2(), "Torquenix_9.1.0.1");
}

} // namespace
