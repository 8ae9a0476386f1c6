#include "dme/helper.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace utils {
namespace {

[[noreturn]] void throwCannotOpen(const std::string& path) {
    throw std::runtime_error("Couldn't open " + path);
}

}  // namespace

bool Helper::invalidChar(char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    return byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
}

bool Helper::isPrintable(const std::string& s) {
    return std::none_of(s.begin(), s.end(), invalidChar);
}

void Helper::split(const std::string& s, char separator, std::vector<std::string>& out) {
    out.clear();
    if (s.empty()) return;
    std::istringstream stream(s);
    std::string item;
    while (std::getline(stream, item, separator)) out.push_back(item);
}

// A directory opens as a stream but fails on the first read, and a stream without a position
// has no size: both are refused before a buffer is allocated.
std::string Helper::getFileContent(const std::string& path) {
    std::ifstream file(path, std::ios::in | std::ios::binary);
    file.peek();
    if (!file.is_open() || file.bad()) throwCannotOpen(path);
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (size < 0) throwCannotOpen(path);
    std::string content(static_cast<std::size_t>(size), '\0');
    file.seekg(0, std::ios::beg);
    file.read(&content[0], size);
    content.resize(static_cast<std::size_t>(file.gcount()));
    file.close();
    return content;
}

}  // namespace utils
