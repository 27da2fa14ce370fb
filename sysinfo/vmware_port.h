/// The I/O port through which a guest asks the VMware hypervisor about itself.
#pragma once

#include <cstdint>
#include <optional>

namespace SYSINFO_NAMESPACE {

/// Product number that the hypervisor reports. Absent when it does not answer with its magic, when the port
/// read faults (a host that is no such guest after all, an emulator), and on machines other than x86.
std::optional<std::uint32_t> readVMwareProduct();

/// A port read: the product number, or nothing. It owns nothing, since a fault leaves it at any point.
using PortRead = std::optional<std::uint32_t> (*)();

/// What a port read gives; nothing when it raises SIGSEGV or SIGILL. Signal handlers and the signal mask are
/// as before afterwards. For one thread at a time.
std::optional<std::uint32_t> readGuarded(PortRead read);

} // namespace SYSINFO_NAMESPACE
