#include "dme/select.h"

#include <algorithm>
#include <utility>

namespace dme {

Select::Property::Property(const std::string& text, unsigned int begin, unsigned int end)
    : name_(text, begin, end - begin) {}

const Select::Property* Select::Properties::find(const ConstHashString& name) const {
    auto found =
        std::find_if(properties_.begin(), properties_.end(),
                     [&name](const Property& property) { return property.name() == name; });
    return found == properties_.end() ? nullptr : &*found;
}

Select::Property& Select::Properties::emplace(const std::string& text, unsigned int begin,
                                              unsigned int end) {
    Property candidate(text, begin, end);
    if (const Property* existing = find(candidate.name())) {
        // The element lives in this non-const sequence; find only hands it out as const.
        return const_cast<Property&>(*existing);
    }
    properties_.push_back(std::move(candidate));
    return properties_.back();
}

Select::Property& Select::Properties::add(const std::string& text, unsigned int begin,
                                          unsigned int end) {
    Properties* level = this;
    Property* current = nullptr;
    unsigned int position = begin;
    do {
        const std::string::size_type slash = text.find('/', position);
        const unsigned int segmentEnd = slash < end ? static_cast<unsigned int>(slash) : end;
        current = &level->emplace(text, position, segmentEnd);
        level = &current->children();
        position = segmentEnd + 1;
    } while (position < end);
    return *current;
}

Select::Select(const std::string& text) {
    std::string::size_type begin = 0;
    while (begin <= text.size()) {
        std::string::size_type comma = text.find(',', begin);
        if (comma == std::string::npos) comma = text.size();
        if (comma > begin) {
            root_.add(text, static_cast<unsigned int>(begin), static_cast<unsigned int>(comma));
        }
        begin = comma + 1;
    }
    selectAll_ = root_.empty();
    resetStack();
}

Select::Select(const Select& other) : selectAll_(other.selectAll_), root_(other.root_) {
    resetStack();
}

// Not noexcept: restarting the walk stack allocates.
// NOLINTNEXTLINE(performance-noexcept-move-constructor)
Select::Select(Select&& other) : selectAll_(other.selectAll_), root_(std::move(other.root_)) {
    resetStack();
}

Select& Select::operator=(const Select& other) {
    if (this != &other) {
        selectAll_ = other.selectAll_;
        root_ = other.root_;
        resetStack();
    }
    return *this;
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
Select& Select::operator=(Select&& other) {
    if (this != &other) {
        selectAll_ = other.selectAll_;
        root_ = std::move(other.root_);
        resetStack();
    }
    return *this;
}

bool Select::push(const ConstHashString& name) {
    if (selectAll_) return true;
    return findAndPush(name) != nullptr;
}

const Select::Properties* Select::findAndPush(const ConstHashString& name) {
    if (stack_.empty()) return nullptr;
    const Properties* level = stack_.back();
    const Property* found = level == nullptr ? nullptr : level->find(name);
    const Properties* children = found == nullptr ? nullptr : &found->children();
    stack_.push_back(children);
    return children;
}

void Select::pop() {
    if (!selectAll_ && !stack_.empty()) stack_.pop_back();
}

void Select::resetStack() {
    stack_.clear();
    if (!selectAll_) stack_.push_back(&root_);
}

}  // namespace dme
