/// The seams: one-line forwarders through which the collectors and the version functions reach the utilities.
/// A program links the real forwarders, a unit test programmable ones. Each hands its arguments on unchanged
/// and returns the utility's result; the contracts stand with the utilities.
#pragma once

#include <string>
#include <sys/stat.h>

namespace T {

int getTQInstalledVersionStr(std::string& out);
bool isDebianUbuntu();
bool isHostTQUnixClient();
int readTorquenixVersionFile(const std::string& path, std::string& out);
int readUnixTorquenixBinVersionFile(std::string& out);

/// Adds the two arguments that the utility has more: no retries and a wait of 0.
int run_command_and_capture_output(const char* command, std::string& output, int* status);

const char* getOsHdwName(int identifier);
bool isValidKqupdateOsHdwNamesIdentifier(int identifier);
const char* get_TQ_binary_version2();
int stat(const char* path, struct ::stat* attributes);

} // namespace T
