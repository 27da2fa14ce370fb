/// Names that the product's version files begin with.
#pragma once

#include <string>

namespace tqclntdb_utils {

inline const std::string TORQUENIX_STR = "Torquenix";
inline const std::string FROSTMARCH_STR = "Frostmarch";
inline const std::string TQOPENSTACK_STR = "TorquenixforOpenStack";

} // namespace tqclntdb_utils
