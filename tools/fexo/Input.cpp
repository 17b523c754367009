#include <fexo/Input.hpp>

#include <common/TerminalText.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace fexo::tool {

namespace {

// 65536 as "65,536".
std::string groupedDigits(std::size_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
    return digits;
}

} // namespace

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
        // Counted, never kept: what lies beyond the limit was never read into memory.
        reportProblem(what + " is more than " + groupedDigits(limit) + " bytes");
        return std::nullopt;
    }
    return content;
}

} // namespace fexo::tool
