/// Records of a made-up fleet: all of a length that real hosts have, no two alike, the same in every run.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

std::string hostNameOf(std::uint64_t host);

/// An identifier in the form of a UUID.
std::string hostIdOf(std::uint64_t host);

/// The record of a host as the body of a PUT: about 650 bytes. `change` stands in it, so that another number
/// is another record of the same length.
std::string recordOf(std::uint64_t host, std::uint64_t change);

/// The same as a master server stores and lists it, with "uuid" and "hostName" in front.
std::string listedRecordOf(std::uint64_t host);

} // namespace bench
