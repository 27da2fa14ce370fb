// The floor of a run: starts the same external commands in the same way and does nothing else.
//
// usage: floor LIST FOLDER
// A line of LIST is "system TEXT", with {out} and {err} for the two files that the text writes to, or "popen
// TEXT". The files are made in FOLDER and removed after each command, as the command runner does; a pipe is
// read to its end.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

std::string replaced(std::string text, const std::string& key, const std::string& value)
{
    if (const std::size_t at = text.find(key); at != std::string::npos)
        text.replace(at, key.size(), value);
    return text;
}

bool runThroughSystem(const std::string& text, const std::string& folder)
{
    const std::string out = folder + "/floor.out";
    const std::string err = folder + "/floor.err";
    const int result = std::system(replaced(replaced(text, "{out}", out), "{err}", err).c_str());
    unlink(out.c_str());
    unlink(err.c_str());
    return result != -1;
}

bool runThroughPipe(const std::string& text)
{
    FILE* pipe = popen(text.c_str(), "re");
    if (!pipe)
        return false;
    std::array<char, 128> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe)) {
    }
    return pclose(pipe) != -1;
}

/// One line of the list: the way, one blank, the text.
bool runLine(const std::string& line, const std::string& folder)
{
    const std::size_t blank = line.find(' ');
    const std::string text = line.substr(blank + 1);
    return line.compare(0, blank, "system") == 0 ? runThroughSystem(text, folder) : runThroughPipe(text);
}

} // namespace

int main(int argc, char* argv[])
{
    // The C library's streams alone: those of C++ would set up a locale that no floor needs.
    FILE* list = argc == 3 ? std::fopen(argv[1], "re") : nullptr;
    if (!list) {
        std::fprintf(stderr, "usage: floor LIST FOLDER\n");
        return 2;
    }
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), line.size(), list)) {
        line[std::strcspn(line.data(), "\n")] = '\0';
        if (!runLine(line.data(), argv[2])) {
            std::fprintf(stderr, "floor: cannot start: %s\n", line.data());
            return 1;
        }
    }
    std::fclose(list);
    return 0;
}
