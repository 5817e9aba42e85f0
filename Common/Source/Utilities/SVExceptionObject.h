// What the copies of one SVException share: an exception whose details steer how it is logged.
//
// SVException (the handle) says what the details mean; this class describes itself by them, and is
// what archives hold. Threads: see Platform/ExceptionObject.h.
#pragma once

#include <memory>
#include <string>

#include "Common/Source/Utilities/LogClassification.h"
#include "Platform/ExceptionObject.h"

namespace sevrin {

class SVExceptionObject;
using SVExceptionObjectPtr = std::shared_ptr<SVExceptionObject>;

class SVExceptionObject : public platform::ExceptionObject {
public:
    SVExceptionObject();

    // Without details.
    SVExceptionObject(std::string name, std::string reason);

    // The class "SVException". It answers the selector "preferredLogClass".
    [[nodiscard]] static platform::Class& classObject();
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    // The classification that the details ask for, else the one of the name.
    [[nodiscard]] LogClassification preferredLogClass() const;

    [[noreturn]] void throwHandle() override;

    // "<name> reason", and the details in braces: " { key=value, ... }", in the dictionary's order
    // and none left out. A value with white space in it stands in single quotes, without escapes.
    // Details that reach this exception again, or a length that nobody reads, end in an ellipsis.
    [[nodiscard]] std::string description() const override;

    void readFromCoder(platform::NSCoder& coder) override;

protected:
    // As a dictionary that changes, which the details are.
    void encodeUserInfoForKey(platform::NSCoder& coder, const platform::Value& info,
                              std::string_view key) const override;
};

}  // namespace sevrin
