#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace dme {
namespace http {

// A file compiled into the library: its path below its folder and its bytes.
struct EmbeddedFile {
    const char* path;
    const unsigned char* bytes;
    std::size_t size;
};

// The files of the browser console (src/http/console), compiled in by cmake/EmbedFiles.cmake.
const std::vector<EmbeddedFile>& consoleFiles();

}  // namespace http
}  // namespace dme
