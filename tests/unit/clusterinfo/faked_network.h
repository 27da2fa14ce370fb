/// What the network says to the discovery in these tests: names and addresses from a table, no name server.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace faked_network {

/// One call of gethostbyaddr().
struct LookUp {
    std::vector<unsigned char> bytes; ///< as many as the length says
    int family = 0;
    bool operator==(const LookUp&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const LookUp& lookUp);

struct Network {
    std::map<std::string, std::string> names; ///< by numeric address; what is not there does not resolve
    std::vector<LookUp> lookUps;              ///< in order
    std::string hostName = "node1.example";   ///< of this host
    bool hostNameFails = false;
    int hostNameError = 0; ///< errno of the failure; 0 leaves it as it is
};

Network& network();
void reset();

} // namespace faked_network
