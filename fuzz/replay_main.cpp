/// Runs every fuzz target over inputs that are kept: findings of earlier runs, and seeds.
///
///     fuzz_replay FOLDER...
///
/// Each folder holds one folder a target. The name of an input is printed before it runs, so the last one is
/// the one that ended the process. Ends with 1 when a target has no input at all: then it tests nothing.
#include "fuzz/support/target.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#define FUZZ_TARGET(name) extern "C" int name##_fuzz(const std::uint8_t* data, std::size_t size);
#include "fuzz_targets.inc"
#undef FUZZ_TARGET

namespace {

struct Target {
    const char* name;
    int (*run)(const std::uint8_t*, std::size_t);
};

constexpr Target TARGETS[] = {
#define FUZZ_TARGET(name) {#name, name##_fuzz},
#include "fuzz_targets.inc"
#undef FUZZ_TARGET
};

std::vector<std::filesystem::path> inputsOf(const Target& target, const std::vector<std::string>& folders)
{
    std::vector<std::filesystem::path> inputs;
    for (const std::string& folder : folders) {
        const std::filesystem::path own = std::filesystem::path(folder) / target.name;
        if (!std::filesystem::is_directory(own))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(own))
            inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

void replay(const Target& target, const std::filesystem::path& input)
{
    std::cout << target.name << ": " << input.filename().string() << std::endl;
    std::ifstream stream(input, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> folders(argv + 1, argv + argc);
    int status = 0;
    for (const Target& target : TARGETS) {
        const std::vector<std::filesystem::path> inputs = inputsOf(target, folders);
        for (const std::filesystem::path& input : inputs)
            replay(target, input);
        if (inputs.empty()) {
            std::cerr << target.name << ": no inputs\n";
            status = 1;
        }
    }
    return status;
}
