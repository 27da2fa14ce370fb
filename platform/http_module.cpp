#include "platform/http_module.h"

#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/release.h"
#include "platform/status.h"

#include <cstdlib>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace tq {

namespace {

TransferResult notLoaded(const std::string& cause)
{
    return {EC_web_request_failed, "the HTTP client cannot be loaded: " + cause};
}

/// Why the loader failed, with the file's name.
std::string loaderWords()
{
    const char* words = dlerror();
    return words == nullptr ? "no cause is known" : words;
}

/// Whether the file ends before its table of sections, which stands last. The loader would take such a file
/// and the process die at a page that is not there.
bool isCutOff(const char* path)
{
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    Elf64_Ehdr head{};
    struct stat facts {};
    if (!file || read(file.get(), &head, sizeof head) != static_cast<ssize_t>(sizeof head) ||
        fstat(file.get(), &facts) != 0 ||
        std::string_view(ELFMAG) != std::string_view(reinterpret_cast<const char*>(head.e_ident), SELFMAG))
        return false;
    const std::uint64_t tableBytes = std::uint64_t{head.e_shentsize} * head.e_shnum;
    const auto fileBytes = static_cast<std::uint64_t>(facts.st_size);
    return head.e_shoff > fileBytes || tableBytes > fileBytes - head.e_shoff;
}

/// The TLS library that other protocols of libcurl would use prepares itself as it is loaded, with a megabyte
/// of memory, unless it is asked not to. Only while the module is loaded: external commands have their own
/// needs.
class UnusedTlsLibraryAsleep {
public:
    UnusedTlsLibraryAsleep() { setenv(VARIABLE, "1", 1); }
    UnusedTlsLibraryAsleep(const UnusedTlsLibraryAsleep&) = delete;
    UnusedTlsLibraryAsleep& operator=(const UnusedTlsLibraryAsleep&) = delete;
    ~UnusedTlsLibraryAsleep() { unsetenv(VARIABLE); }

private:
    static constexpr const char* VARIABLE = "GNUTLS_NO_IMPLICIT_INIT";
};

/// The module; null, and why, when it cannot serve.
const HttpModule* loadModule(TransferResult& failure)
{
    if (isCutOff(TQ_HTTP_MODULE)) {
        failure = notLoaded(std::string(TQ_HTTP_MODULE) + " is cut off");
        return nullptr;
    }
    const UnusedTlsLibraryAsleep asleep;
    // Never closed: the process ends soon, and libcurl may have left a resolver thread behind.
    void* library = dlopen(TQ_HTTP_MODULE, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const auto* module =
        static_cast<const HttpModule*>(library == nullptr ? nullptr : dlsym(library, HTTP_MODULE_SYMBOL));
    if (module == nullptr) {
        failure = notLoaded(loaderWords());
        return nullptr;
    }
    if (module->release != std::string_view(TQ_RELEASE_NUMBER)) {
        failure = notLoaded(std::string(TQ_HTTP_MODULE) +
                            " belongs to another release than this program (" TQ_RELEASE_NUMBER ")");
        return nullptr;
    }
    return module;
}

} // namespace

TransferResult openHttpTransport(const std::string& server, int port, const TlsTrust& trust,
                                 const WebLimits& limits, std::unique_ptr<HttpTransport>& transport)
{
    static const HttpModule* module = nullptr;
    if (module == nullptr) {
        TransferResult failure;
        module = loadModule(failure);
        if (module == nullptr)
            return failure;
    }
    transport = module->make(server, port, trust, limits);
    return {};
}

} // namespace tq
