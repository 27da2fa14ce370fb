/// Names of the machine codes that the system probes report.
#pragma once

#include <cstdint>

namespace TQCLNTDB {

/// Name of a hypervisor family, for example "VMWARE"; "NONE" for 0 and any code that the table does not hold.
const char* hypervisorName(std::int64_t code);

/// "PHYSICAL" for 0, "VIRTUAL" for 1, "UNKNOWN" for any other code.
const char* machineTypeName(std::int64_t code);

} // namespace TQCLNTDB
