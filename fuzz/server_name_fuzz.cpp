/// Names of servers, which end up in paths of files.
#include "fuzz/support/target.h"
#include "platform/paths.h"
#include "platform/server_name.h"

#include <algorithm>
#include <filesystem>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using fuzz::require;
    const std::string_view name = fuzz::textOf(data, size);
    if (tq::serverNameFault(name) != nullptr)
        return 0;
    require(!name.empty() && name.size() <= 253, "a good name has 1 to 253 bytes", name);
    require(std::none_of(name.begin(), name.end(), fuzz::isControl), "a good name holds no control character",
            name);
    for (const char* base :
         {TQ_CACHE_FILE_BASE, TQ_CACHE_LOCK_BASE, TQ_UPDATE_LOCK_BASE, TQ_UPDATE_STATUS_BASE}) {
        const std::filesystem::path path(std::string(base) + '.' + std::string(name));
        require(path.lexically_normal().parent_path() == TQ_VAR_DIR, "a server's file stays in its folder",
                path.string());
        require(path != std::string(TQ_UPDATE_LOCK_BASE) + ".daemon", "no server's lock is the daemon's",
                name);
    }
    return 0;
}
