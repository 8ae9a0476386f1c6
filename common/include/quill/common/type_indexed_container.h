#pragma once

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <typeindex>
#include <typeinfo>
#include <vector>

namespace quill {
namespace common {

// A list of std::shared_ptr<T> holding at most one object per dynamic type, kept ordered by
// std::type_info::before on the pointees' dynamic types and looked up by exact type (typeid
// equality, not by base class). Copyable (copies share the objects). Not thread-safe.
template <class T>
class TypeIndexedContainer {
  public:
    using SharedElement = std::shared_ptr<T>;

    TypeIndexedContainer() = default;
    // Takes the objects in the given order, sorts them by dynamic type and checks them: a null
    // pointer throws std::runtime_error, two objects of one type std::invalid_argument.
    explicit TypeIndexedContainer(std::vector<SharedElement> elements)
        : elements_(std::move(elements)) {
        for (const SharedElement& element : elements_) typeOf(element);
        std::stable_sort(elements_.begin(), elements_.end(), lt);
        for (std::size_t i = 1; i < elements_.size(); ++i) {
            if (typeOf(elements_[i - 1]) == typeOf(elements_[i])) throwMultiple();
        }
    }
    TypeIndexedContainer(std::initializer_list<SharedElement> elements)
        : TypeIndexedContainer(std::vector<SharedElement>(elements)) {}

    // Inserts `element` at its place in the type order. Throws std::runtime_error for a null
    // pointer and std::invalid_argument when an object of the same type is already stored.
    void add(SharedElement element) {
        const std::type_index type = typeOf(element);
        auto position = lowerBound(type);
        if (position != elements_.end() && typeOf(*position) == type) {
            throw std::invalid_argument(
                "TypeIndexContainer - Error: attempt to add a type already stored");
        }
        elements_.insert(position, std::move(element));
    }

    // The object whose dynamic type is exactly U, or null when there is none.
    template <class U>
    std::shared_ptr<U> find() const {
        auto position = lowerBound(std::type_index(typeid(U)));
        if (position == elements_.end() || typeOf(*position) != std::type_index(typeid(U))) {
            return nullptr;
        }
        auto next = position + 1;
        if (next != elements_.end() && typeOf(*next) == std::type_index(typeid(U))) throwMultiple();
        return std::static_pointer_cast<U>(*position);
    }

    // The object whose dynamic type is exactly U; std::out_of_range when there is none.
    template <class U>
    std::shared_ptr<U> get() const {
        std::shared_ptr<U> found = find<U>();
        if (!found) throw std::out_of_range("TypeIndexContainer - Error: Type not found");
        return found;
    }

    template <class U>
    bool contains() const {
        return find<U>() != nullptr;
    }

    // Removes the object of dynamic type U; returns whether there was one.
    template <class U>
    bool remove() {
        auto position = lowerBound(std::type_index(typeid(U)));
        if (position == elements_.end() || typeOf(*position) != std::type_index(typeid(U))) {
            return false;
        }
        elements_.erase(position);
        return true;
    }

    std::size_t size() const { return elements_.size(); }
    bool empty() const { return elements_.empty(); }
    void clear() { elements_.clear(); }
    typename std::vector<SharedElement>::const_iterator begin() const { return elements_.begin(); }
    typename std::vector<SharedElement>::const_iterator end() const { return elements_.end(); }

    // Orders two elements by the dynamic type of their pointees.
    static bool lt(const SharedElement& a, const SharedElement& b) { return typeOf(a) < typeOf(b); }

  private:
    static std::type_index typeOf(const SharedElement& element) {
        if (!element) {
            throw std::runtime_error(
                "TypeIndexContainer - Error: unable to get type of an empty (null) SharedElement");
        }
        return std::type_index(typeid(*element));
    }

    [[noreturn]] static void throwMultiple() {
        throw std::invalid_argument(
            "TypeIndexContainer - Error: Multiple instances of same type found");
    }

    typename std::vector<SharedElement>::const_iterator lowerBound(std::type_index type) const {
        return std::lower_bound(
            elements_.begin(), elements_.end(), type,
            [](const SharedElement& e, std::type_index t) { return typeOf(e) < t; });
    }

    std::vector<SharedElement> elements_;
};

}  // namespace common
}  // namespace quill
