#pragma once

#include <string>

namespace kora {

// The boolean value of service messages, written "true" or "false".
class USBoolean {
public:
    explicit USBoolean(bool value = false) : value_(value) {}

    bool boolValue() const { return value_; }
    void setBoolValue(bool value) { value_ = value; }
    std::string stringValue() const { return value_ ? "true" : "false"; }

    bool operator==(const USBoolean&) const = default;

private:
    bool value_;
};

}  // namespace kora
