#include <dme/http/error_document.h>
#include <dme/json.h>

#include <iostream>
#include <string>

int main() {
    const std::string text = dme::formatJson(dme::http::errorDocument(404, "Not Found", {}));
    std::cout << text << '\n';
    return text == R"({"error":{"code":404,"message":"Not Found","details":[]}})" ? 0 : 1;
}
