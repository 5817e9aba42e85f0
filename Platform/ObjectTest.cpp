// Tests of what every object can do before its class knows better.
#include "Platform/Object.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <regex>
#include <string>

#include "Platform/Class.h"

namespace sevrin::platform {
namespace {

class Plain : public Object {};

// Has a class of its own, with one method.
class Lamp : public Object {
public:
    [[nodiscard]] static Class& classObject() {
        static Class theClass("ObjectTestLamp", &Object::classObject(),
                              {{"glow", [](Object*, Invocation&) { return Value(true); }}});
        return theClass;
    }
    [[nodiscard]] const Class& isa() const override { return classObject(); }
};

TEST(ObjectTest, IsOfTheClassObjectUnlessItSaysOtherwise) {
    EXPECT_EQ(&Plain().isa(), &Object::classObject());
    EXPECT_EQ(Plain().isa().name(), "Object");
    EXPECT_EQ(Lamp().isa().name(), "ObjectTestLamp");
    EXPECT_TRUE(Lamp().isa().isSubclassOf(Object::classObject()));
}

TEST(ObjectTest, IsDescribedByClassAndAddress) {
    const Lamp lamp;
    std::smatch match;
    const std::string description = lamp.description();

    ASSERT_TRUE(std::regex_match(description, match, std::regex("<ObjectTestLamp: 0x([0-9a-f]+)>")))
        << description;
    EXPECT_EQ(std::stoull(match[1], nullptr, 16), reinterpret_cast<std::uintptr_t>(&lamp));
}

TEST(ObjectTest, IsEqualToItselfOnly) {
    const Plain one;
    const Plain other;

    EXPECT_TRUE(one.isEqual(one));
    EXPECT_FALSE(one.isEqual(other));
    EXPECT_EQ(one.hash(), one.hash());
}

TEST(ObjectTest, RespondsToTheMethodsOfItsClass) {
    EXPECT_TRUE(Lamp().respondsToSelector("glow"));
    EXPECT_FALSE(Lamp().respondsToSelector("glow:"));
    EXPECT_FALSE(Plain().respondsToSelector("glow"));
}

}  // namespace
}  // namespace sevrin::platform
