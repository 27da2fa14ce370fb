#include "tests/unit/clusterinfo/faked_network.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace faked_network {
namespace {

Network theNetwork;

} // namespace

Network& network()
{
    return theNetwork;
}

void reset()
{
    theNetwork = Network{};
}

std::ostream& operator<<(std::ostream& stream, const LookUp& lookUp)
{
    stream << "family " << lookUp.family << ':';
    for (const unsigned byte : lookUp.bytes)
        stream << ' ' << byte;
    return stream;
}

} // namespace faked_network

using faked_network::network;

// The linker's names for a call that is wrapped.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

hostent* __wrap_gethostbyaddr(const void* address, socklen_t length, int family)
{
    const auto* bytes = static_cast<const unsigned char*>(address);
    network().lookUps.push_back({{bytes, bytes + length}, family});
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, address, text, sizeof text);
    const auto found = network().names.find(text);
    if (found == network().names.end())
        return nullptr;
    static hostent entry;
    entry.h_name = found->second.data();
    return &entry;
}

int __wrap_gethostname(char* name, std::size_t size) noexcept
{
    if (network().hostNameFails) {
        if (network().hostNameError != 0)
            errno = network().hostNameError;
        return -1;
    }
    std::strncpy(name, network().hostName.c_str(), size);
    return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)
