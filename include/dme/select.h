#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "dme/hash_string.h"

namespace dme {

// The property selection of a read: a tree of property names parsed once from a select text such
// as "name,address/city", then followed along the walk of the resource tree. Entering a named
// child pushes its name and tells whether the child is selected; leaving it pops.
//
// A selection that names no property selects everything. A name selected without children
// selects that child but nothing beneath it; a deeper selection is spelled out ("a/b"). Below an
// unselected child nothing is selected.
//
// Copyable and movable: the tree is copied deeply and the copy's walk starts afresh at its own
// root. Copying or moving during a walk is therefore not supported: the walk position is not
// carried over. Not thread-safe; one walk at a time.
class Select {
  public:
    class Property;

    // An ordered sequence of properties, in order of first appearance in the select text, with
    // unique names. Copyable (deep copy).
    class Properties {
      public:
        using const_iterator = std::vector<Property>::const_iterator;

        // The first property whose name equals `name`, or null.
        const Property* find(const ConstHashString& name) const;
        // Returns the property named text[begin, end): the one already present if there is one
        // (so that the children gathered for it are kept), else a new one appended at the end.
        Property& emplace(const std::string& text, unsigned int begin, unsigned int end);
        // Adds the '/'-separated path text[begin, end), one level per segment, merging segments
        // with the properties already present. A '/' at the start or after another '/' gives a
        // segment with an empty name; a trailing '/' adds nothing. Returns the property of the
        // last segment.
        Property& add(const std::string& text, unsigned int begin, unsigned int end);

        const_iterator begin() const { return properties_.begin(); }
        const_iterator end() const { return properties_.end(); }
        std::size_t size() const { return properties_.size(); }
        bool empty() const { return properties_.empty(); }
        // Requires index < size().
        const Property& operator[](std::size_t index) const { return properties_[index]; }

      private:
        std::vector<Property> properties_;
    };

    // One selected name and the selection beneath it (empty when nothing beneath it is
    // selected). Copyable (deep copy).
    class Property {
      public:
        // The name is text.substr(begin, end - begin); requires begin <= end.
        Property(const std::string& text, unsigned int begin, unsigned int end);

        const ConstHashString& name() const { return name_; }
        const Properties& children() const { return children_; }
        Properties& children() { return children_; }

      private:
        ConstHashString name_;
        Properties children_;
    };

    // Parses a select text: items separated by ',' (empty items are skipped, nothing is
    // trimmed), each a '/'-separated path. A text without any item selects everything.
    explicit Select(const std::string& text);

    // The copy or moved-to object holds the same tree; its walk starts at its own root.
    Select(const Select& other);
    // Not noexcept: restarting the walk stack allocates.
    Select(Select&& other);  // NOLINT(performance-noexcept-move-constructor)
    Select& operator=(const Select& other);
    Select& operator=(Select&& other);  // NOLINT(performance-noexcept-move-constructor)

    // True when every property is selected; the walk stack is then never used.
    bool selectAll() const { return selectAll_; }
    // The top level of the selection tree (empty when everything is selected).
    const Properties& root() const { return root_; }
    // The number of levels on the walk stack: 1 right after construction unless everything is
    // selected, then 0.
    std::size_t depth() const { return stack_.size(); }

    // Enters the child `name` and returns whether it is selected. Always true, and nothing is
    // pushed, when everything is selected. Every push is paired with one pop, whatever it
    // returned.
    bool push(const ConstHashString& name);
    // Looks `name` up in the level on top of the stack, pushes the children of the property
    // found (null when the level is null or has no such name) and returns what it pushed.
    // With an empty stack returns null and pushes nothing.
    const Properties* findAndPush(const ConstHashString& name);
    // Leaves the child entered last. Does nothing when everything is selected or the stack is
    // already empty.
    void pop();

  private:
    // Restarts the walk at this object's own root.
    void resetStack();

    bool selectAll_ = true;
    Properties root_;
    std::vector<const Properties*> stack_;
};

// Pushes `name` on the selection for the lifetime of the object (Select::push) and tells
// whether the selection takes it; popped again on leaving (Select::pop), also when an exception
// passes. Lives on the stack of the node that lists its members; not copyable.
class SelectionStep {
  public:
    SelectionStep(Select& select, const ConstHashString& name)
        : select_(select), selected_(select.push(name)) {}
    ~SelectionStep() { select_.pop(); }
    SelectionStep(const SelectionStep&) = delete;
    SelectionStep& operator=(const SelectionStep&) = delete;

    bool selected() const { return selected_; }

  private:
    Select& select_;
    bool selected_;
};

}  // namespace dme
