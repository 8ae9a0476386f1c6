#include <dme/dme.h>

#include <iostream>
#include <sstream>

int main() {
    dme::Path path("/system/network/0");
    std::ostringstream text;
    text << path << ' ' << (dme::AllowedMethods(dme::READ) + dme::AllowedMethods(dme::UPDATE));
    std::cout << text.str() << '\n';
    return text.str() == "/system/network/0 _RU__" ? 0 : 1;
}
