// The floor of a run: starts the same external commands in the same way and does nothing else.
//
// usage: floor LIST FOLDER
// A line of LIST is "system TEXT", with {out} and {err} for the two files that the text writes to, or "popen
// TEXT". The files are made in FOLDER and removed after each command, as the command runner does; a pipe is
// read to its end.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

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
    char buffer[128];
    while (std::fgets(buffer, sizeof buffer, pipe)) {
    }
    return pclose(pipe) != -1;
}

std::vector<std::string> readLines(const char* path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 3) {
        std::cerr << "usage: floor LIST FOLDER\n";
        return 2;
    }
    for (const std::string& line : readLines(argv[1])) {
        const std::size_t blank = line.find(' ');
        const std::string text = line.substr(blank + 1);
        const bool good =
            line.substr(0, blank) == "system" ? runThroughSystem(text, argv[2]) : runThroughPipe(text);
        if (!good) {
            std::cerr << "floor: cannot start: " << text << '\n';
            return 1;
        }
    }
    return 0;
}
