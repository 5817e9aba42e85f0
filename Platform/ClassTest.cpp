// Tests of classes by name: registration, and methods found along the chain of superclasses.
#include "Platform/Class.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace sevrin::platform {
namespace {

// A method that gives `text`.
Class::Method giving(std::string text) {
    return [text = std::move(text)](Object*, Invocation&) { return Value(text); };
}

std::string call(const Class::Method* method) {
    Invocation invocation;
    return method ? (*method)(nullptr, invocation).description() : "no method";
}

class ClassTest : public testing::Test {
protected:
    Class base_{"ClassTestBase",
                &Object::classObject(),
                {{"speak", giving("base")}, {"walk", giving("base walks")}},
                {{"make", giving("a base")}, {"count", giving("1")}}};
    Class derived_{"ClassTestDerived",
                   &base_,
                   {{"speak", giving("derived")}, {"sing", giving("la")}},
                   {{"make", giving("a derived")}}};
};

TEST_F(ClassTest, IsFoundByItsExactName) {
    EXPECT_EQ(Class::named("ClassTestBase"), &base_);
    EXPECT_EQ(Class::named("ClassTestDerived"), &derived_);
    EXPECT_EQ(derived_.name(), "ClassTestDerived");
}

TEST_F(ClassTest, AnUnknownNameGivesNothing) {
    EXPECT_EQ(Class::named("ClassTestbase"), nullptr);
    EXPECT_EQ(Class::named("ClassTest"), nullptr);
    EXPECT_EQ(Class::named(""), nullptr);
}

TEST_F(ClassTest, IsForgottenWhenItEnds) {
    std::optional<Class> passing;
    passing.emplace("ClassTestPassing", nullptr, Class::MethodTable());
    ASSERT_EQ(Class::named("ClassTestPassing"), &*passing);

    passing.reset();

    EXPECT_EQ(Class::named("ClassTestPassing"), nullptr);
    passing.emplace("ClassTestPassing", nullptr, Class::MethodTable());
    EXPECT_EQ(Class::named("ClassTestPassing"), &*passing);
}

TEST_F(ClassTest, IsFoundWhileOthersComeAndGo) {
    std::atomic<bool> isDone = false;
    std::thread comingAndGoing([&] {
        for (int round = 0; round < 1'000; ++round)
            const Class passing("ClassTestPassing", &base_, {});
        isDone = true;
    });

    while (!isDone)
        EXPECT_EQ(Class::named("ClassTestDerived"), &derived_);

    comingAndGoing.join();
}

TEST_F(ClassTest, IsASubclassOfItselfAndOfAllAbove) {
    EXPECT_EQ(derived_.superclass(), &base_);
    EXPECT_TRUE(derived_.isSubclassOf(derived_));
    EXPECT_TRUE(derived_.isSubclassOf(base_));
    EXPECT_TRUE(derived_.isSubclassOf(Object::classObject()));

    EXPECT_FALSE(base_.isSubclassOf(derived_));
}

TEST_F(ClassTest, InstanceMethodsAreInheritedAndOverridden) {
    EXPECT_EQ(call(derived_.instanceMethod("speak")), "derived");
    EXPECT_EQ(call(derived_.instanceMethod("walk")), "base walks");
    EXPECT_EQ(call(base_.instanceMethod("speak")), "base");
    EXPECT_EQ(base_.instanceMethod("sing"), nullptr);
}

TEST_F(ClassTest, ClassMethodsAreInheritedAndOverridden) {
    EXPECT_EQ(call(derived_.classMethod("make")), "a derived");
    EXPECT_EQ(call(derived_.classMethod("count")), "1");
    EXPECT_EQ(call(base_.classMethod("make")), "a base");
}

TEST_F(ClassTest, InstanceAndClassMethodsAreTablesApart) {
    EXPECT_EQ(derived_.classMethod("speak"), nullptr);
    EXPECT_EQ(derived_.instanceMethod("make"), nullptr);
}

TEST_F(ClassTest, ASelectorThatNobodyHasGivesNothing) {
    EXPECT_EQ(derived_.instanceMethod(""), nullptr);
    EXPECT_EQ(derived_.instanceMethod("speak:"), nullptr);
    EXPECT_EQ(derived_.instanceMethod("spea"), nullptr);
}

TEST_F(ClassTest, AMethodGetsItsReceiverAndItsArguments) {
    Object receiver;
    const Class counter("ClassTestCounter", nullptr,
                        {{"add:to:", [&](Object* given, Invocation& invocation) {
                              EXPECT_EQ(given, &receiver);
                              return Value(*invocation.arguments[0].ifSigned() +
                                           *invocation.arguments[1].ifSigned());
                          }}});
    ValueArray arguments{2, 3};
    Invocation invocation{arguments, nullptr};

    EXPECT_EQ((*counter.instanceMethod("add:to:"))(&receiver, invocation), Value(5));
}

using ClassDeathTest = ClassTest;

TEST_F(ClassDeathTest, RegisteringANameTwiceIsABug) {
    EXPECT_DEATH(Class("ClassTestBase", nullptr, {}), "a class name is registered once");
}

}  // namespace
}  // namespace sevrin::platform
