#pragma once

#include <functional>
#include <memory>

namespace dme {

// A unique pointer whose deleter is chosen at run time. Built from a T* it owns the object and
// deletes it; built from a T& its deleter does nothing and the caller keeps ownership.
// Movable, not copyable.
template <class T>
class SmartPointer : public std::unique_ptr<T, std::function<void(T*)>> {
    using Base = std::unique_ptr<T, std::function<void(T*)>>;

  public:
    SmartPointer() : Base(nullptr, [](T*) {}) {}
    SmartPointer(std::nullptr_t) : SmartPointer() {}                 // NOLINT
    SmartPointer(T* owned) : Base(owned, [](T* p) { delete p; }) {}  // NOLINT
    SmartPointer(T& borrowed) : Base(&borrowed, [](T*) {}) {}        // NOLINT
    template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    SmartPointer(U* owned) : Base(owned, [](T* p) { delete p; }) {}  // NOLINT
    template <class U, class = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    SmartPointer(U& borrowed) : Base(&borrowed, [](T*) {}) {}  // NOLINT
};

}  // namespace dme
