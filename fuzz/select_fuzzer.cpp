// Fuzzes dme::Select. The input is a select text, then a walk of at most MAX_STEPS steps of two
// bytes each: a push of a name taken from the text (or of a name that it does not contain), or a
// pop. The parsed tree must follow the text, every push must say whether the name is selected at
// that level, and the stack must grow and shrink with the walk; a copy starts its walk afresh.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "dme/hash_string.h"
#include "dme/select.h"
#include "fuzz_input.h"

namespace {

constexpr unsigned MAX_STEPS = 64;

// The pieces of `text` between `separator`s, empty ones included.
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

// Every name of the text: the pieces between ',' and '/'.
std::vector<std::string> namesOf(const std::string& text) {
    std::vector<std::string> names;
    for (const std::string& item : split(text, ',')) {
        for (const std::string& name : split(item, '/')) names.push_back(name);
    }
    return names;
}

// The selection tree as the text spells it, built independently of the parser: items between
// commas (empty ones skipped), each cut at '/'; a trailing '/' adds no level, but one that
// stands alone or follows another '/' names the empty property. Names keep their first order.
struct Expected {
    std::vector<std::pair<std::string, Expected>> children;

    Expected& child(const std::string& name) {
        for (auto& entry : children) {
            if (entry.first == name) return entry.second;
        }
        children.emplace_back(name, Expected());
        return children.back().second;
    }
};

Expected expectedTree(const std::string& text) {
    Expected root;
    for (const std::string& item : split(text, ',')) {
        if (item.empty()) continue;
        std::vector<std::string> segments = split(item, '/');
        if (segments.size() > 1 && segments.back().empty()) segments.pop_back();
        Expected* level = &root;
        for (const std::string& segment : segments) level = &level->child(segment);
    }
    return root;
}

void checkTree(const dme::Select::Properties& properties, const Expected& expected) {
    fuzz::check(properties.size() == expected.children.size());
    for (std::size_t i = 0; i < properties.size(); ++i) {
        fuzz::check(properties[i].name().str() == expected.children[i].first);
        fuzz::check(properties.find(properties[i].name()) == &properties[i]);
        checkTree(properties[i].children(), expected.children[i].second);
    }
}

// Follows the selection tree beside the one under test: `levels` holds, for each level entered,
// the properties selected there, or null below an unselected or childless name.
class Walk {
  public:
    Walk(dme::Select& select, const std::vector<std::string>& names)
        : select_(select), names_(names) {
        if (!select.selectAll()) levels_.push_back(&select.root());
    }

    void step(std::uint8_t op, std::uint8_t arg) {
        if (op % 3 == 0) {
            pop();
        } else {
            push(arg);
        }
        fuzz::check(select_.depth() == levels_.size());
    }

  private:
    void push(std::uint8_t arg) {
        const dme::ConstHashString name =
            arg < names_.size() ? dme::ConstHashString(names_[arg]) : dme::ConstHashString("\x7f");
        const bool selected = select_.push(name);
        if (select_.selectAll()) {
            fuzz::check(selected);
            return;
        }
        if (levels_.empty()) {
            fuzz::check(!selected);
            return;
        }
        const dme::Select::Properties* level = levels_.back();
        const dme::Select::Property* found = level == nullptr ? nullptr : level->find(name);
        fuzz::check(selected == (found != nullptr));
        levels_.push_back(found == nullptr ? nullptr : &found->children());
    }

    void pop() {
        select_.pop();
        if (!levels_.empty()) levels_.pop_back();
    }

    dme::Select& select_;
    const std::vector<std::string>& names_;
    std::vector<const dme::Select::Properties*> levels_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const std::string text = input.field();
    dme::Select select(text);
    const Expected expected = expectedTree(text);
    fuzz::check(select.selectAll() == expected.children.empty());
    fuzz::check(select.depth() == (select.selectAll() ? 0u : 1u));
    checkTree(select.root(), expected);

    const std::vector<std::string> names = namesOf(text);
    Walk walk(select, names);
    for (unsigned i = 0; i < MAX_STEPS && !input.empty(); ++i) {
        const std::uint8_t op = input.byte();
        walk.step(op, input.byte());
    }

    const dme::Select copy(select);
    fuzz::check(copy.depth() == (copy.selectAll() ? 0u : 1u));
    checkTree(copy.root(), expected);
    return 0;
}
