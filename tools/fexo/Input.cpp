#include <fexo/Input.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace fexo::tool {

std::optional<std::string> readInput(const std::string& name)
{
    if (name.empty() || name == "-") {
        std::ostringstream content;
        content << std::cin.rdbuf();
        return content.str();
    }
    std::ifstream file(name, std::ios::binary);
    if (!file) {
        std::cerr << "fexo: cannot read " << name << ": " << std::strerror(errno) << std::endl;
        return std::nullopt;
    }
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

} // namespace fexo::tool
