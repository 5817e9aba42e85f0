// Tests of classes by name: registration, and methods found along the chain of superclasses.
#include "Platform/Class.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
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

TEST_F(ClassTest, AnOwnMethodIsReplacedAndGivenBack) {
    Class::Method original;

    EXPECT_TRUE(derived_.swizzleWithReturningOriginalImp("speak", giving("new"), &original));

    EXPECT_EQ(call(derived_.instanceMethod("speak")), "new");
    EXPECT_EQ(call(&original), "derived");
    EXPECT_EQ(call(base_.instanceMethod("speak")), "base");
}

TEST_F(ClassTest, AnInheritedMethodIsReplacedForTheClassAlone) {
    Class::Method original;

    EXPECT_TRUE(derived_.swizzleWithReturningOriginalImp("walk", giving("new"), &original));

    EXPECT_EQ(call(derived_.instanceMethod("walk")), "new");
    EXPECT_EQ(call(&original), "base walks");
    EXPECT_EQ(call(base_.instanceMethod("walk")), "base walks");
}

TEST_F(ClassTest, AMethodThatNobodyHasIsNotReplaced) {
    Class::Method original = giving("left over");

    EXPECT_FALSE(derived_.swizzleWithReturningOriginalImp("fly", giving("new"), &original));
    EXPECT_FALSE(base_.swizzleWithReturningOriginalImp("sing", giving("new")));
    EXPECT_FALSE(derived_.swizzleWithReturningOriginalImp("make", giving("new")));

    EXPECT_FALSE(original);
    EXPECT_EQ(derived_.instanceMethod("fly"), nullptr);
    EXPECT_EQ(base_.instanceMethod("sing"), nullptr);
    EXPECT_EQ(derived_.instanceMethod("make"), nullptr);
}

TEST_F(ClassTest, WhatIsReplacedAboveIsInheritedByThoseWithoutTheirOwn) {
    EXPECT_TRUE(base_.swizzleWithReturningOriginalImp("walk", giving("new")));
    EXPECT_TRUE(base_.swizzleWithReturningOriginalImp("speak", giving("new")));

    EXPECT_EQ(call(derived_.instanceMethod("walk")), "new");
    EXPECT_EQ(call(derived_.instanceMethod("speak")), "derived");
}

TEST_F(ClassTest, AReplacementIsReplacedInItsTurnAndTheOthersStay) {
    Class::Method first;
    Class::Method second;

    EXPECT_TRUE(derived_.swizzleWithReturningOriginalImp("walk", giving("one"), &first));
    EXPECT_TRUE(derived_.swizzleWithReturningOriginalImp("walk", giving("two"), &second));

    EXPECT_EQ(call(&first), "base walks");
    EXPECT_EQ(call(&second), "one");
    EXPECT_EQ(call(derived_.instanceMethod("walk")), "two");
    EXPECT_EQ(call(derived_.instanceMethod("speak")), "derived");
    EXPECT_EQ(call(derived_.instanceMethod("sing")), "la");
}

TEST_F(ClassTest, AReplacementMayCallWhatItReplaces) {
    Class::Method original;

    derived_.swizzleWithReturningOriginalImp(
        "speak",
        [&original](Object* receiver, Invocation& invocation) {
            return Value(original(receiver, invocation).description() + " and more");
        },
        &original);

    EXPECT_EQ(call(derived_.instanceMethod("speak")), "derived and more");
}

TEST_F(ClassTest, AMethodThatWasFoundStaysCallableOnceItIsReplaced) {
    const Class::Method* const found = derived_.instanceMethod("speak");

    derived_.swizzleWithReturningOriginalImp("speak", giving("new"));

    EXPECT_EQ(call(found), "derived");
}

TEST_F(ClassTest, MethodsAreFoundWhileTheyAreReplaced) {
    std::atomic<bool> isDone = false;
    std::thread replacing([&] {
        for (int round = 0; round < 300; ++round) {
            derived_.swizzleWithReturningOriginalImp("speak", giving("new"));
            derived_.swizzleWithReturningOriginalImp("walk", giving("new"));
            base_.swizzleWithReturningOriginalImp("walk", giving("new"));
        }
        isDone = true;
    });

    while (!isDone) {
        const std::string spoken = call(derived_.instanceMethod("speak"));
        EXPECT_TRUE(spoken == "derived" || spoken == "new") << spoken;
        const std::string walked = call(derived_.instanceMethod("walk"));
        EXPECT_TRUE(walked == "base walks" || walked == "new") << walked;
        EXPECT_EQ(call(derived_.instanceMethod("sing")), "la");
    }

    replacing.join();
    EXPECT_EQ(call(derived_.instanceMethod("walk")), "new");
}

TEST_F(ClassTest, TwoReplacementsAtOnceBothHappenOneAfterTheOther) {
    Class::Method first;
    Class::Method second;
    std::thread other(
        [&] { derived_.swizzleWithReturningOriginalImp("walk", giving("other"), &second); });

    derived_.swizzleWithReturningOriginalImp("walk", giving("one"), &first);
    other.join();

    // Whichever came second found the first.
    const bool otherCameLast = call(derived_.instanceMethod("walk")) == "other";
    EXPECT_EQ(call(otherCameLast ? &first : &second), "base walks");
    EXPECT_EQ(call(otherCameLast ? &second : &first), otherCameLast ? "one" : "other");
}

TEST(ClassObjectTest, IsANewInstanceEachTime) {
    class Instance : public Object {};
    const Class maker("ClassTestMaker", &Object::classObject(), {}, {},
                      [] { return std::make_shared<Instance>(); });

    const ObjectPtr one = maker.object();
    const ObjectPtr other = maker.object();

    EXPECT_NE(dynamic_cast<Instance*>(one.get()), nullptr);
    EXPECT_NE(one, other);
}

TEST(ClassObjectTest, TheRootClassMakesPlainObjects) {
    const ObjectPtr made = Object::classObject().object();

    ASSERT_TRUE(made);
    EXPECT_EQ(&made->isa(), &Object::classObject());
}

TEST_F(ClassTest, AClassThatCannotMakeInstancesMakesNoneOfItsSuperclass) {
    ASSERT_EQ(base_.superclass(), &Object::classObject());

    EXPECT_EQ(base_.object(), nullptr);
}

using ClassDeathTest = ClassTest;

TEST_F(ClassDeathTest, AMethodThatCannotBeCalledReplacesNone) {
    EXPECT_DEATH(derived_.swizzleWithReturningOriginalImp("speak", nullptr),
                 "a method is replaced by one that can be called");
}

TEST_F(ClassDeathTest, RegisteringANameTwiceIsABug) {
    EXPECT_DEATH(Class("ClassTestBase", nullptr, {}), "a class name is registered once");
}

}  // namespace
}  // namespace sevrin::platform
