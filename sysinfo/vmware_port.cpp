#include "sysinfo/vmware_port.h"

#include <csetjmp>
#include <csignal>

namespace SYSINFO_NAMESPACE {

namespace {

/// Where a faulting port read continues; valid only while FaultCatcher lives.
sigjmp_buf afterFault;

void continueAfterFault(int /*signal*/)
{
    siglongjmp(afterFault, 1);
}

/// Catches the two signals that a port read without permission raises.
class FaultCatcher {
public:
    FaultCatcher()
    {
        struct sigaction action {};
        action.sa_handler = continueAfterFault;
        sigemptyset(&action.sa_mask);
        sigaction(SIGSEGV, &action, &savedSegv_);
        sigaction(SIGILL, &action, &savedIll_);
    }
    FaultCatcher(const FaultCatcher&) = delete;
    FaultCatcher& operator=(const FaultCatcher&) = delete;
    ~FaultCatcher()
    {
        sigaction(SIGSEGV, &savedSegv_, nullptr);
        sigaction(SIGILL, &savedIll_, nullptr);
    }

private:
    struct sigaction savedSegv_ {};
    struct sigaction savedIll_ {};
};

#if defined(__x86_64__) || defined(__i386__)

std::optional<std::uint32_t> readPort()
{
    constexpr std::uint32_t MAGIC = 0x564D5868;
    constexpr std::uint32_t PORT = 0x5658;
    constexpr std::uint32_t COMMAND_GET_VERSION = 10;
    std::uint32_t accumulator = MAGIC;
    std::uint32_t base = 0;
    std::uint32_t count = COMMAND_GET_VERSION;
    std::uint32_t data = PORT;
    asm volatile("inl %%dx, %%eax" : "+a"(accumulator), "+b"(base), "+c"(count), "+d"(data) : : "memory");
    if (base != MAGIC)
        return std::nullopt;
    return count;
}

#else

std::optional<std::uint32_t> readPort()
{
    return std::nullopt;
}

#endif

} // namespace

std::optional<std::uint32_t> readGuarded(PortRead read)
{
    const FaultCatcher catcher;
    // With the signal mask: the signal that is being handled is blocked until it is put back.
    if (sigsetjmp(afterFault, 1) != 0)
        return std::nullopt;
    return read();
}

std::optional<std::uint32_t> readVMwareProduct()
{
    return readGuarded(readPort);
}

} // namespace SYSINFO_NAMESPACE
