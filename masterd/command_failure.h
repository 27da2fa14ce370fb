/// How a command of tqmasterd ends when it cannot be done.
#pragma once

#include <stdexcept>
#include <string>

namespace masterd {

/// A failure that ends a command of tqmasterd, with its exit status.
class CommandFailure : public std::runtime_error {
public:
    CommandFailure(int exitStatus, const std::string& message)
        : std::runtime_error(message), exitStatus_(exitStatus)
    {
    }
    [[nodiscard]] int exitStatus() const { return exitStatus_; }

private:
    int exitStatus_;
};

/// Exit statuses of tqmasterd.
enum ExitStatus : int {
    EXIT_DONE = 0,        ///< done; for `serve`: ended by a signal, requests in hand answered
    EXIT_FAILED = 1,      ///< it could not be done; standard error says why
    EXIT_USAGE = 2,       ///< the command line is wrong; nothing was touched
    EXIT_FOLDER_BUSY = 3, ///< another tqmasterd holds the data folder
    EXIT_PORT_TAKEN = 4,  ///< the address and port cannot be taken
};

} // namespace masterd
