// A WMI class for the simulated service: properties in declaration order with
// CIM types and defaults, and methods with their in and out parameters.
#pragma once

#include <string>
#include <vector>

#include "platform.h"
#include "sim/Value.h"

namespace sim {

struct PropertyDef {
    std::wstring name;
    CIMTYPE type;
    Value defaultValue;
};

struct Parameter {
    std::wstring name;
    CIMTYPE type;
};

// Out parameters list "ReturnValue" explicitly when the method has one.
struct MethodDef {
    std::wstring name;
    std::vector<Parameter> in;
    std::vector<Parameter> out;
};

class ClassDef {
public:
    explicit ClassDef(std::wstring name);
    ClassDef& property(std::wstring name, CIMTYPE type, Value defaultValue = Value());
    ClassDef& method(std::wstring name, std::vector<Parameter> in, std::vector<Parameter> out);

    const std::wstring& name() const { return name_; }
    const std::vector<PropertyDef>& properties() const { return properties_; }
    const std::vector<MethodDef>& methods() const { return methods_; }
    // Case-insensitive, as WMI names are; nullptr when absent.
    const PropertyDef* findProperty(const std::wstring& name) const;
    const MethodDef* findMethod(const std::wstring& name) const;

private:
    std::wstring name_;
    std::vector<PropertyDef> properties_;
    std::vector<MethodDef> methods_;
};

}  // namespace sim
