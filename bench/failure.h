/// How programs of the bench fail: with one line on standard error and exit status 1.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace bench {

/// What went wrong, in words for the one who runs the bench.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A failed call of the C library: `what` and the text of errno.
Failure systemFailure(const std::string& what);

/// A failed call of OpenSSL: `what` and the library's latest error.
Failure tlsFailure(const std::string& what);

/// Runs a program's work; a failure is printed and gives 1.
int runProgram(const char* name, const std::function<void()>& work);

} // namespace bench
