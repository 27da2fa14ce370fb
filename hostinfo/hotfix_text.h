/// Rules for the lines of the pack summary and for the names of hotfix bundles. Pure; any text gives a value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace TQCLNTDB {

/// Bundle name on a line of the pack summary: from "Torquenix_" to the next blank, of a line that also holds
/// "HFX_Torquenix" and "_SET". Absent for any other line.
std::optional<std::string> bundleNameOf(const std::string& line);

/// Version text of a bundle name: what stands between its first ten characters and "_PET". Absent without
/// "_PET" and when nothing stands there. Throws std::out_of_range for a name of fewer than ten characters.
std::optional<std::string> bundleVersionOf(const std::string& name);

/// Release number of a version text: up to four numbers separated by "." or "_" as 7, 4 and 4 bits and an
/// unmasked rest, cut to 32 bits. A large fourth number deliberately spills into the upper fields.
std::int32_t releaseNumberOf(const std::string& version);

} // namespace TQCLNTDB
