#pragma once

#include <string>
#include <vector>

namespace utils {

// Stateless text utilities: telling printable text from control bytes, cutting a string at a
// separator and reading a whole file into a string. All functions are static and thread-safe
// (getFileContent as far as the file itself is not changed while it is read). Not instantiable.
class Helper {
  public:
    Helper() = delete;

    // True for the control bytes 0x00 to 0x1F other than tab, line feed and carriage return.
    // Bytes from 0x20 up, 0x7F and every byte of a UTF-8 sequence included, are valid.
    static bool invalidChar(char c);
    // True when no byte of `s` is an invalidChar; true for the empty string.
    static bool isPrintable(const std::string& s);
    // Replaces the content of `out` with the pieces of `s` cut at `separator`, by the rules of
    // std::getline: "a,,b" gives "a", "", "b"; a trailing separator adds no empty last piece;
    // an empty `s` gives no piece at all.
    static void split(const std::string& s, char separator, std::vector<std::string>& out);
    // The whole content of the file at `path`, byte for byte (no newline translation, no
    // character check). Throws std::runtime_error("Couldn't open " + path) when the file cannot
    // be opened or read (a missing file, a directory).
    static std::string getFileContent(const std::string& path);
};

}  // namespace utils
