#include "quill/common/type_indexed_container.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <vector>

namespace {

using quill::common::TypeIndexedContainer;

struct Base {
    virtual ~Base() = default;
};
struct Alpha : Base {};
struct Beta : Base {};
struct Gamma : Base {};
struct DerivedAlpha : Alpha {};

using Container = TypeIndexedContainer<Base>;

const char* const kNullText =
    "TypeIndexContainer - Error: unable to get type of an empty (null) SharedElement";
const char* const kDuplicateText =
    "TypeIndexContainer - Error: Multiple instances of same type found";
const char* const kAlreadyStoredText =
    "TypeIndexContainer - Error: attempt to add a type already stored";
const char* const kNotFoundText = "TypeIndexContainer - Error: Type not found";

template <class Exception, class Action>
void expectThrowWithText(Action action, const std::string& text) {
    try {
        action();
        ADD_FAILURE() << "no exception thrown";
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()), text);
    }
}

// The dynamic types of the stored objects, in stored order.
std::vector<std::type_index> typesOf(const Container& container) {
    std::vector<std::type_index> types;
    for (const auto& element : container) {
        const Base& object = *element;
        types.emplace_back(typeid(object));
    }
    return types;
}

// Alpha, Beta and Gamma sorted by the standard library's type order, the reference that the
// container must follow.
std::vector<std::type_index> referenceOrder() {
    std::vector<std::type_index> types{typeid(Gamma), typeid(Alpha), typeid(Beta)};
    std::sort(types.begin(), types.end());
    return types;
}

TEST(TypeIndexedContainerTest, DefaultIsEmpty) {
    Container container;
    EXPECT_TRUE(container.empty());
    EXPECT_EQ(container.size(), 0u);
    EXPECT_EQ(container.begin(), container.end());
}

TEST(TypeIndexedContainerTest, ConstructorOrdersByDynamicType) {
    Container container{std::make_shared<Gamma>(), std::make_shared<Alpha>(),
                        std::make_shared<Beta>()};
    EXPECT_EQ(typesOf(container), referenceOrder());
}

TEST(TypeIndexedContainerTest, ConstructorOrderDoesNotDependOnInputOrder) {
    Container forward{std::make_shared<Alpha>(), std::make_shared<Beta>(),
                      std::make_shared<Gamma>()};
    Container backward{std::make_shared<Gamma>(), std::make_shared<Beta>(),
                       std::make_shared<Alpha>()};
    EXPECT_EQ(typesOf(forward), typesOf(backward));
}

TEST(TypeIndexedContainerTest, VectorConstructorOrdersByDynamicType) {
    Container container(std::vector<Container::SharedElement>{
        std::make_shared<Beta>(), std::make_shared<Gamma>(), std::make_shared<Alpha>()});
    EXPECT_EQ(typesOf(container), referenceOrder());
}

TEST(TypeIndexedContainerTest, AddKeepsTypeOrder) {
    Container container;
    container.add(std::make_shared<Beta>());
    container.add(std::make_shared<Gamma>());
    container.add(std::make_shared<Alpha>());
    EXPECT_EQ(typesOf(container), referenceOrder());
}

TEST(TypeIndexedContainerTest, LtOrdersByDynamicTypeOfPointees) {
    Container::SharedElement alpha = std::make_shared<Alpha>();
    Container::SharedElement beta = std::make_shared<Beta>();
    const bool alphaFirst = std::type_index(typeid(Alpha)) < std::type_index(typeid(Beta));
    EXPECT_EQ(Container::lt(alpha, beta), alphaFirst);
    EXPECT_EQ(Container::lt(beta, alpha), !alphaFirst);
    EXPECT_FALSE(Container::lt(alpha, std::make_shared<Alpha>()));
}

TEST(TypeIndexedContainerTest, LtRejectsNull) {
    expectThrowWithText<std::runtime_error>(
        [] { Container::lt(nullptr, std::make_shared<Alpha>()); }, kNullText);
}

TEST(TypeIndexedContainerTest, GetReturnsStoredObject) {
    auto beta = std::make_shared<Beta>();
    Container container{std::make_shared<Alpha>(), beta};
    EXPECT_EQ(container.get<Beta>(), beta);
}

TEST(TypeIndexedContainerTest, GetOfAbsentTypeThrowsOutOfRange) {
    Container container{std::make_shared<Alpha>()};
    expectThrowWithText<std::out_of_range>([&] { container.get<Beta>(); }, kNotFoundText);
}

TEST(TypeIndexedContainerTest, GetOnEmptyContainerThrowsOutOfRange) {
    Container container;
    expectThrowWithText<std::out_of_range>([&] { container.get<Alpha>(); }, kNotFoundText);
}

TEST(TypeIndexedContainerTest, FindOfAbsentTypeReturnsNull) {
    Container container{std::make_shared<Alpha>()};
    EXPECT_EQ(container.find<Beta>(), nullptr);
}

TEST(TypeIndexedContainerTest, ContainsTellsWhetherTypeIsStored) {
    Container container{std::make_shared<Alpha>()};
    EXPECT_TRUE(container.contains<Alpha>());
    EXPECT_FALSE(container.contains<Beta>());
}

TEST(TypeIndexedContainerTest, AddOfStoredTypeThrowsInvalidArgument) {
    Container container{std::make_shared<Alpha>()};
    expectThrowWithText<std::invalid_argument>([&] { container.add(std::make_shared<Alpha>()); },
                                               kAlreadyStoredText);
    EXPECT_EQ(container.size(), 1u);
}

TEST(TypeIndexedContainerTest, AddOfNullThrowsRuntimeError) {
    Container container;
    expectThrowWithText<std::runtime_error>([&] { container.add(nullptr); }, kNullText);
    EXPECT_TRUE(container.empty());
}

TEST(TypeIndexedContainerTest, NullInConstructorThrowsRuntimeError) {
    expectThrowWithText<std::runtime_error>(
        [] {
            Container container{std::make_shared<Alpha>(), nullptr};
        },
        kNullText);
}

TEST(TypeIndexedContainerTest, NullInVectorConstructorThrowsRuntimeError) {
    expectThrowWithText<std::runtime_error>(
        [] { Container container(std::vector<Container::SharedElement>{nullptr}); }, kNullText);
}

TEST(TypeIndexedContainerTest, MultipleInstancesInConstructorThrowInvalidArgument) {
    expectThrowWithText<std::invalid_argument>(
        [] {
            Container container{std::make_shared<Alpha>(), std::make_shared<Beta>(),
                                std::make_shared<Alpha>()};
        },
        kDuplicateText);
}

TEST(TypeIndexedContainerTest, LookupIsByExactTypeNotByBaseClass) {
    Container container{std::make_shared<DerivedAlpha>()};
    EXPECT_EQ(container.find<Alpha>(), nullptr);
    EXPECT_FALSE(container.contains<Base>());
    EXPECT_TRUE(container.contains<DerivedAlpha>());
    expectThrowWithText<std::out_of_range>([&] { container.get<Alpha>(); }, kNotFoundText);
}

TEST(TypeIndexedContainerTest, BaseAndDerivedTypesAreStoredSeparately) {
    auto alpha = std::make_shared<Alpha>();
    auto derived = std::make_shared<DerivedAlpha>();
    Container container{derived, alpha};
    EXPECT_EQ(container.size(), 2u);
    EXPECT_EQ(container.get<Alpha>(), alpha);
    EXPECT_EQ(container.get<DerivedAlpha>(), derived);
}

TEST(TypeIndexedContainerTest, RemoveDropsStoredType) {
    Container container{std::make_shared<Alpha>(), std::make_shared<Beta>()};
    EXPECT_TRUE(container.remove<Alpha>());
    EXPECT_EQ(container.size(), 1u);
    EXPECT_FALSE(container.contains<Alpha>());
    EXPECT_TRUE(container.contains<Beta>());
}

TEST(TypeIndexedContainerTest, RemoveOfAbsentTypeReturnsFalse) {
    Container container{std::make_shared<Alpha>()};
    EXPECT_FALSE(container.remove<Beta>());
    EXPECT_EQ(container.size(), 1u);
}

TEST(TypeIndexedContainerTest, RemovedTypeCanBeAddedAgain) {
    Container container{std::make_shared<Alpha>()};
    ASSERT_TRUE(container.remove<Alpha>());
    auto replacement = std::make_shared<Alpha>();
    container.add(replacement);
    EXPECT_EQ(container.get<Alpha>(), replacement);
}

TEST(TypeIndexedContainerTest, ClearEmptiesContainer) {
    Container container{std::make_shared<Alpha>(), std::make_shared<Beta>()};
    container.clear();
    EXPECT_TRUE(container.empty());
    EXPECT_FALSE(container.contains<Alpha>());
}

TEST(TypeIndexedContainerTest, CopySharesObjects) {
    auto alpha = std::make_shared<Alpha>();
    Container container{alpha};
    Container copy(container);
    EXPECT_EQ(copy.get<Alpha>(), alpha);
}

TEST(TypeIndexedContainerTest, RemovingFromCopyLeavesOriginal) {
    auto alpha = std::make_shared<Alpha>();
    Container container{alpha};
    Container copy(container);
    ASSERT_TRUE(copy.remove<Alpha>());
    EXPECT_EQ(container.get<Alpha>(), alpha);
}

}  // namespace
