#include "sysinfo/vmware_port.h"

#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

using namespace SYSINFO_NAMESPACE;

namespace {

/// How this process handles the signals of a fault, and which signals it blocks.
struct SignalState {
    SignalState()
    {
        struct sigaction action {};
        sigaction(SIGSEGV, nullptr, &action);
        handlers.push_back(action.sa_handler);
        sigaction(SIGILL, nullptr, &action);
        handlers.push_back(action.sa_handler);
        sigset_t mask;
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        for (int signal = 1; signal < NSIG; ++signal)
            blocked.push_back(sigismember(&mask, signal) == 1);
    }
    bool operator==(const SignalState&) const = default;

    std::vector<void (*)(int)> handlers;
    std::vector<bool> blocked;
};

} // namespace

TEST(ReadGuarded, AReadThatFaultsCountsAsNoAnswerAndLeavesTheSignalsAsTheyWere)
{
    const PortRead faulting[] = {[]() -> std::optional<std::uint32_t> {
                                     raise(SIGSEGV);
                                     return 4;
                                 },
                                 []() -> std::optional<std::uint32_t> {
                                     raise(SIGILL);
                                     return 4;
                                 }};
    const SignalState before;
    for (const PortRead read : faulting) {
        for (int call = 0; call < 2; ++call) { // a signal that stayed blocked would end the second one
            EXPECT_EQ(readGuarded(read), std::nullopt);
            EXPECT_EQ(before, SignalState());
        }
    }
}

TEST(ReadGuarded, AReadThatAnswersIsHandedOn)
{
    const SignalState before;
    EXPECT_EQ(readGuarded([]() -> std::optional<std::uint32_t> { return 4; }), 4U);
    EXPECT_EQ(readGuarded([]() -> std::optional<std::uint32_t> { return std::nullopt; }), std::nullopt);
    EXPECT_EQ(before, SignalState());
}

TEST(ReadVMwareProduct, LeavesTheSignalsAsTheyWereOnWhateverMachine)
{
    const SignalState before;
    readVMwareProduct();
    readVMwareProduct();
    EXPECT_EQ(before, SignalState());
}
