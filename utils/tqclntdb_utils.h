/// Installed product version, shell commands with captured output, and small probes of the host.
#pragma once

#include <cstddef>
#include <string>

namespace tqclntdb_utils {

/// Longest command line that run_command_and_capture_output takes, in bytes.
inline constexpr std::size_t MAX_COMMAND_LENGTH = 8092;

/// Runs a command through the shell and collects its standard output.
///
/// `output` is emptied once, at the start; a retried command's text is appended to that of earlier runs.
/// `status` receives the command's exit code (bits 8 to 15 of its wait status), or -1 when the result is 7247
/// or 7250; it keeps its value when nothing ran or when closing the pipe reports an error.
/// While the exit code is not 0, runs up to `retries` times more, after waits of waitMs, 2 x waitMs, ... ms.
/// Returns 0 when the command ran, whatever its exit code, and for a negative `retries` (then nothing runs);
/// 20 without command or status; 7281 for a text over MAX_COMMAND_LENGTH; 7247 when it could not be started;
/// 7250 when reading stopped before the end of its output, or a limit ended the command (also after it had
/// closed its output); `output` then holds what was read.
int run_command_and_capture_output(const char* command, std::string& output, int* status, int retries,
                                   int waitMs);

/// Product name that a version line begins with ("-" must follow it): Torquenix, Frostmarch or
/// TorquenixforOpenStack. False, and `product` untouched, for any other line.
bool findProductStr(const std::string& line, std::string& product);

/// Whether `uname -a` names Debian or Ubuntu. A failing command counts as no.
bool isDebianUbuntu();

/// Whether this host is a client only: neither a folder nor a regular file stands at /usr/torqv/db.
bool isHostTQUnixClient();

/// Installed product version as "Torquenix_9.1.0.1", from the binary directory's version file and, on a
/// server, the higher of that and the product's own; the built-in release when no file can be read.
/// Returns 0, or 7500 when there is no version at all.
int getTQInstalledVersionStr(std::string& out);

/// Version of a version file, normalised as above, from its first line that begins with "VERSION" within its
/// first 16 MiB; a read error ends the file. Returns 0; 7501 the file cannot be opened (absent, a folder, a
/// device); 13 it holds no usable version line.
int readTorquenixVersionFile(const std::string& path, std::string& out);

/// The same for /usr/torqv/torquenix/bin/version, whose first line has a form of its own
/// ("Torquenix-Linux_x86 9.1.0.1"). Whatever follows the number on its line stays.
int readUnixTorquenixBinVersionFile(std::string& out);

/// A version text "product_a.b.c.d.e.f" as a number that orders releases; only the last two digits of a and
/// the last one of the others count. -1 without "_" or without a number after it.
int tqReleaseVersionStringToNumber(const std::string& version);

/// Installed version as a dotted number padded to `components` parts, for example "9.1.0.1"; empty when it
/// cannot be had.
std::string getInstalledPackagesVersionNumberStr(int components);

/// A dotted number padded with ".0" to `components` parts, cut after its last digit; longer ones stay as they
/// are. Empty when the text does not begin with a digit.
std::string padTorquenixVersionNumberStr(const char* text, int components);

/// The release that is built into the program, for example "Torquenix_9.1.0.1".
const char* get_TQ_binary_version2();

} // namespace tqclntdb_utils
