#include <dme/dme.h>

#include <iostream>
#include <string>

int main() {
    using namespace dme;
    // The names that the library writes and reads; resource paths go under "href".
    const Lexicon lexicon{"href", "id", "count", "items", "expand", "select"};
    const AllowedMethods readWrite = READ + UPDATE;
    // The tree: an object with a text and a flag. Nodes handed over by pointer are owned.
    auto* root =
        new Structure({new Entry("name", new StaticAtomicValue<std::string>("dme", readWrite)),
                       new Entry("enabled", new StaticAtomicValue<bool>(true, readWrite))},
                      readWrite + AllowedMethods::B, false);
    // The data model grants these methods to every caller; the engine owns the data model.
    JsonDataModelEngine engine(new DataModel(root, lexicon, readWrite + AllowedMethods::B), "demo");
    std::string answer;
    engine.execute(UPDATE, "/name", Arguments(), "\"vara\"", answer, false);
    const int status = engine.execute(READ, "/", Arguments(), "", answer, false);
    std::cout << status << " " << answer << std::endl;
    return status;
}
