#include <fexo/Input.hpp>

#include <common/TerminalText.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace fexo::tool {

std::optional<std::string> readInput(const std::string& name, std::size_t limit, const std::string& what)
{
    const bool standardInput = name.empty() || name == "-";
    std::ifstream file;
    if (!standardInput) {
        file.open(name, std::ios::binary);
        if (!file) {
            reportProblem("cannot read " + name + ": " + std::strerror(errno));
            return std::nullopt;
        }
    }
    std::istream& in = standardInput ? std::cin : file;
    std::string content;
    char buffer[65536];
    while (content.size() <= limit && in.read(buffer, sizeof buffer).gcount() > 0) {
        content.append(buffer, static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) {
        reportProblem("cannot read " + (standardInput ? std::string("standard input") : name));
        return std::nullopt;
    }
    if (content.size() > limit) {
        reportProblem(what + " is larger than " + std::to_string(limit) + " bytes");
        return std::nullopt;
    }
    return content;
}

} // namespace fexo::tool
