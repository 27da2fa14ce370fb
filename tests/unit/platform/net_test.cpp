#include "platform/net.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// The test's own resolver: answers are set here, and questions are counted.
namespace {

struct Resolver {
    int error = 0;
    std::string canonicalName;
    std::vector<std::string> addresses; ///< numeric
    int questions = 0;
};
Resolver resolver;

addrinfo* makeAnswer(const std::string& address)
{
    auto* answer = static_cast<addrinfo*>(std::calloc(1, sizeof(addrinfo) + sizeof(sockaddr_storage)));
    answer->ai_addr = reinterpret_cast<sockaddr*>(answer + 1);
    auto* ipv4 = reinterpret_cast<sockaddr_in*>(answer->ai_addr);
    auto* ipv6 = reinterpret_cast<sockaddr_in6*>(answer->ai_addr);
    if (inet_pton(AF_INET, address.c_str(), &ipv4->sin_addr) == 1)
        answer->ai_addr->sa_family = AF_INET;
    else if (inet_pton(AF_INET6, address.c_str(), &ipv6->sin6_addr) == 1)
        answer->ai_addr->sa_family = AF_INET6;
    answer->ai_family = answer->ai_addr->sa_family;
    return answer;
}

} // namespace

extern "C" int getaddrinfo(const char* /*name*/, const char* /*service*/, const addrinfo* /*hints*/,
                           addrinfo** list)
{
    ++resolver.questions;
    if (resolver.error != 0)
        return resolver.error;
    addrinfo** end = list;
    for (const std::string& address : resolver.addresses) {
        *end = makeAnswer(address);
        end = &(*end)->ai_next;
    }
    (*list)->ai_canonname = resolver.canonicalName.empty() ? nullptr : strdup(resolver.canonicalName.c_str());
    return 0;
}

extern "C" void freeaddrinfo(addrinfo* list) noexcept
{
    while (list) {
        addrinfo* next = list->ai_next;
        std::free(list->ai_canonname);
        std::free(list);
        list = next;
    }
}

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

// Names are kept for the life of a process, so each test asks for names of its own.

std::vector<std::string> textsOf(const char* name)
{
    knet_hostent* entry = nullptr;
    EXPECT_EQ(knet_cached_gethostent(name, &entry), 0);
    std::vector<std::string> texts;
    for (char** text = entry->names; *text; ++text)
        texts.emplace_back(*text);
    knet_free_knet_hostent(entry);
    return texts;
}

class CachedHostEntry : public testing::Test {
protected:
    void SetUp() override { resolver = {}; }
};

TEST_F(CachedHostEntry, HoldsCanonicalNameThenTheNameThenTheAddresses)
{
    resolver.canonicalName = "h1.example";
    resolver.addresses = {"192.0.2.1", "2001:db8::1"};
    EXPECT_THAT(textsOf("h1"), ElementsAre("h1.example", "h1", "192.0.2.1", "2001:db8::1"));
}

TEST_F(CachedHostEntry, NameThatIsTheCanonicalOneStandsOnce)
{
    resolver.canonicalName = "h2.example";
    resolver.addresses = {"192.0.2.2"};
    EXPECT_THAT(textsOf("H2.Example"), ElementsAre("h2.example", "192.0.2.2"));
}

TEST_F(CachedHostEntry, NameStandsAloneWithoutACanonicalOne)
{
    resolver.addresses = {"192.0.2.3"};
    EXPECT_THAT(textsOf("h3"), ElementsAre("h3", "192.0.2.3"));
}

TEST_F(CachedHostEntry, FirstAnswerIsKept)
{
    resolver.canonicalName = "h4.example";
    resolver.addresses = {"192.0.2.4"};
    const std::vector<std::string> first = textsOf("h4");
    resolver.canonicalName = "changed.example";
    EXPECT_EQ(textsOf("h4"), first);
    EXPECT_EQ(resolver.questions, 1);
}

TEST_F(CachedHostEntry, FailureIsKeptToo)
{
    resolver.error = EAI_AGAIN;
    for (int i = 0; i < 3; ++i) {
        knet_hostent unused{};
        knet_hostent* entry = &unused;
        EXPECT_EQ(knet_cached_gethostent("h5", &entry), EAI_AGAIN);
        EXPECT_EQ(entry, nullptr);
    }
    EXPECT_EQ(resolver.questions, 1);
}

TEST_F(CachedHostEntry, NullNameIsAFailureWithoutAQuestion)
{
    knet_hostent* entry = nullptr;
    EXPECT_EQ(knet_cached_gethostent(nullptr, &entry), EAI_NONAME);
    EXPECT_EQ(resolver.questions, 0);
}

TEST_F(CachedHostEntry, NullEntryIsReleased)
{
    knet_free_knet_hostent(nullptr);
    SUCCEED();
}

TEST_F(CachedHostEntry, AddressOfAnotherFamilyIsLeftOut)
{
    resolver.canonicalName = "h6.example";
    resolver.addresses = {"no address", "192.0.2.6"};
    EXPECT_THAT(textsOf("h6"), ElementsAre("h6.example", "h6", "192.0.2.6"));
}

/// The identifier as a new process gets it, with the resolver as it stands; the questions it asked.
std::pair<std::uint32_t, int> hostIdOfNewProcess()
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        const std::uint32_t answer[2] = {static_cast<std::uint32_t>(knet_gethostid()),
                                         static_cast<std::uint32_t>(resolver.questions)};
        const bool sent = write(ends[1], answer, sizeof answer) == sizeof answer;
        _exit(sent ? 0 : 1);
    }
    std::uint32_t answer[2] = {0, 0};
    EXPECT_EQ(read(ends[0], answer, sizeof answer), static_cast<ssize_t>(sizeof answer));
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return {answer[0], static_cast<int>(answer[1])};
}

class HostId : public testing::Test {
protected:
    void SetUp() override { resolver = {}; }
    void TearDown() override { unlink("/etc/hostid"); }
    static void writeHostId(const std::string& bytes)
    {
        std::ofstream("/etc/hostid", std::ios::binary) << bytes;
    }
};

TEST_F(HostId, IsTheFirstIpv4AddressWithItsHalvesSwapped)
{
    resolver.addresses = {"2001:db8::1", "10.1.2.3", "192.0.2.9"};
    EXPECT_EQ(hostIdOfNewProcess().first, 0x010a0302U); // as hostid(1) prints it for 10.1.2.3
}

TEST_F(HostId, IsThatOfTheFileWhenThereIsOne)
{
    resolver.addresses = {"10.1.2.3"};
    writeHostId(std::string("\x78\x56\x34\x12\xff", 5));
    EXPECT_EQ(hostIdOfNewProcess(), std::make_pair(0x12345678U, 0)) << "and no name is looked up";
}

TEST_F(HostId, FileOfFewerThanFourBytesDoesNotCount)
{
    resolver.addresses = {"10.1.2.3"};
    writeHostId("abc");
    EXPECT_EQ(hostIdOfNewProcess().first, 0x010a0302U);
}

TEST_F(HostId, FileMustLeadToARegularOne)
{
    resolver.addresses = {"10.1.2.3"};
    std::filesystem::create_symlink("/dev/zero", "/etc/hostid");
    EXPECT_EQ(hostIdOfNewProcess().first, 0x010a0302U);
    unlink("/etc/hostid");
    std::ofstream("/tmp/hostid", std::ios::binary) << std::string("\x78\x56\x34\x12", 4);
    std::filesystem::create_symlink("/tmp/hostid", "/etc/hostid");
    EXPECT_EQ(hostIdOfNewProcess().first, 0x12345678U);
}

TEST_F(HostId, HighestBitGivesANegativeNumberAsTheCLibraryDoes)
{
    writeHostId(std::string("\x01\x00\x00\x80", 4));
    EXPECT_EQ(knet_gethostid(), static_cast<long>(static_cast<std::int32_t>(0x80000001U)));
}

TEST_F(HostId, IsZeroWithoutAnAddress)
{
    resolver.error = EAI_NONAME;
    EXPECT_EQ(hostIdOfNewProcess().first, 0U);
    resolver = {};
    resolver.addresses = {"2001:db8::1"};
    EXPECT_EQ(hostIdOfNewProcess().first, 0U);
}

TEST_F(HostId, SharesTheLookupOfTheHostsName)
{
    resolver.addresses = {"10.1.2.3"};
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name), 0);
    knet_hostent* entry = nullptr;
    ASSERT_EQ(knet_cached_gethostent(name, &entry), 0);
    knet_free_knet_hostent(entry);
    EXPECT_EQ(static_cast<std::uint32_t>(knet_gethostid()), 0x010a0302U);
    EXPECT_EQ(knet_gethostid(), knet_gethostid());
    EXPECT_EQ(resolver.questions, 1);
}

std::vector<std::string> interfaceAddresses(int ipv4, int ipv6)
{
    addrinfo* list = nullptr;
    EXPECT_EQ(knet_getifaddrs(ipv4, ipv6, &list), 0);
    std::vector<std::string> texts;
    for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
        char text[46];
        EXPECT_EQ(knet_sockAddrNtoP(entry->ai_addr, text, sizeof text), 0);
        EXPECT_EQ(entry->ai_family, entry->ai_addr->sa_family);
        texts.emplace_back(text);
    }
    knet_freeaddrinfo(list);
    return texts;
}

/// The same from the kernel's list, by the C library's own words.
std::vector<std::string> expectedAddresses(bool ipv4, bool ipv6)
{
    ifaddrs* interfaces = nullptr;
    EXPECT_EQ(getifaddrs(&interfaces), 0);
    std::vector<std::string> texts;
    for (const ifaddrs* one = interfaces; one; one = one->ifa_next) {
        const int family = one->ifa_addr ? one->ifa_addr->sa_family : AF_UNSPEC;
        if ((one->ifa_flags & IFF_UP) == 0 || !((ipv4 && family == AF_INET) || (ipv6 && family == AF_INET6)))
            continue;
        char text[NI_MAXHOST];
        const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        EXPECT_EQ(getnameinfo(one->ifa_addr, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST), 0);
        const std::string address = text;
        texts.push_back(address.substr(0, address.find('%')));
    }
    freeifaddrs(interfaces);
    return texts;
}

TEST(InterfaceAddresses, AreThoseOfTheKernelInItsOrder)
{
    EXPECT_EQ(interfaceAddresses(1, 1), expectedAddresses(true, true));
}

TEST(InterfaceAddresses, AreOfTheFamiliesAskedFor)
{
    EXPECT_EQ(interfaceAddresses(1, 0), expectedAddresses(true, false));
    EXPECT_EQ(interfaceAddresses(0, 1), expectedAddresses(false, true));
    EXPECT_THAT(interfaceAddresses(1, 0), AllOf(Contains("127.0.0.1"), Not(Contains("::1"))));
}

TEST(InterfaceAddresses, NoneAreANullChain)
{
    addrinfo unused{};
    addrinfo* list = &unused;
    EXPECT_EQ(knet_getifaddrs(0, 0, &list), 0);
    EXPECT_EQ(list, nullptr);
    knet_freeaddrinfo(list);
}

TEST(NumericText, NeedsRoomAndAnInternetAddress)
{
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = htonl(0xc0000201);
    char text[46] = "";
    EXPECT_EQ(knet_sockAddrNtoP(reinterpret_cast<sockaddr*>(&ipv4), text, sizeof text), 0);
    EXPECT_STREQ(text, "192.0.2.1");
    EXPECT_NE(knet_sockAddrNtoP(reinterpret_cast<sockaddr*>(&ipv4), text, 9), 0);
    sockaddr local{};
    local.sa_family = AF_UNIX;
    EXPECT_NE(knet_sockAddrNtoP(&local, text, sizeof text), 0);
    EXPECT_NE(knet_sockAddrNtoP(nullptr, text, sizeof text), 0);
}

TEST(NumericText, HasTheLongestIpv6AddressIn46Bytes)
{
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ASSERT_EQ(inet_pton(AF_INET6, "1111:2222:3333:4444:5555:6666:7777:8888", &ipv6.sin6_addr), 1);
    char text[46] = "";
    EXPECT_EQ(knet_sockAddrNtoP(reinterpret_cast<sockaddr*>(&ipv6), text, sizeof text), 0);
    EXPECT_STREQ(text, "1111:2222:3333:4444:5555:6666:7777:8888");
}

TEST(LocalhostCheck, KnowsLoopbackAddresses)
{
    for (const char* text : {"127.0.0.1", "127.0.1.1", "127.255.255.255", "::1", "0:0:0:0:0:0:0:1",
                             "::ffff:127.0.0.1", "::ffff:7f01:203"})
        EXPECT_EQ(knet_localhost_check(text), 1) << text;
    for (const char* text : {"128.0.0.1", "126.255.255.255", "10.127.0.1", "::", "::2", "fe80::1",
                             "::ffff:10.0.0.1", "localhost", "127.0.0", "127.0.0.1 ", "127", ""})
        EXPECT_EQ(knet_localhost_check(text), 0) << text;
    EXPECT_EQ(knet_localhost_check(nullptr), 0);
}

TEST(IpString, IsANumericAddressAndNothingElse)
{
    for (const char* text : {"192.0.2.1", "0.0.0.0", "::", "2001:db8::1", "::ffff:192.0.2.1"})
        EXPECT_TRUE(knet_is_ip_string(text)) << text;
    for (const char* text : {"", "h1", "192.0.2", "192.0.2.256", "192.0.2.1.", " 192.0.2.1", "1.example",
                             "2001:db8:::1", "fe80::1%lo"})
        EXPECT_FALSE(knet_is_ip_string(text)) << text;
    EXPECT_FALSE(knet_is_ip_string(nullptr));
}

} // namespace
