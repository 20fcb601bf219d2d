// One object of the management service with a snapshot of its non-system
// properties, read when the wrapper is made. Movable, not copyable; made and
// read on one thread. An empty wrapper is the failure value of every
// operation that gives an object.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "platform.h"
#include "wmi/com_ptr.h"
#include "wmi/variant.h"

// The module's constant empty value; every lookup that finds nothing gives it.
extern const variant emptyVariant;

class WbemClassObject {
public:
    WbemClassObject() = default;
    // Takes `object` (null gives an empty wrapper), with a reference of its own
    // only if `addRef` is set, and reads its properties.
    WbemClassObject(IWbemClassObject* object, bool addRef);
    WbemClassObject(WbemClassObject&& other) noexcept;
    WbemClassObject& operator=(WbemClassObject&& other) noexcept;
    WbemClassObject(const WbemClassObject&) = delete;
    WbemClassObject& operator=(const WbemClassObject&) = delete;
    ~WbemClassObject();

    bool isEmpty() const { return !object_; }
    IWbemClassObject* get() const { return object_.get(); }

    // The stored value, exact name with case; emptyVariant if there is none.
    const variant& operator[](const std::wstring& name) const;

    // A new instance of the method's input signature, or an empty wrapper.
    WbemClassObject getMethod(const std::wstring& name) const;

    // Typed reads: the out value is written only when the property exists with
    // exactly the required type. An interface pointer lives as long as this
    // wrapper; wrap it with an added reference to keep it longer.
    bool getObjectProperty(const std::wstring& name, IUnknown** out) const;
    bool getByteProperty(const std::wstring& name, std::uint8_t& out) const;
    bool getIntProperty(const std::wstring& name, std::int32_t& out) const;

private:
    void getProperties_();
    WbemClassObject getMethodParams_(const std::wstring& name) const;
    std::pair<bool, const variant*> getPropertyWithTypeCheck_(const std::wstring& name, VARTYPE type) const;

    com_ptr<IWbemClassObject> object_;
    std::map<std::wstring, variant> properties_;
};

// The object an embedded-object value (VT_UNKNOWN) holds, `held` being its
// interface: false, `out` untouched, if that isn't an object. No interface is an
// object with no properties: true with an empty wrapper.
bool embeddedObject(IUnknown* held, WbemClassObject& out);

// `Class.InstanceName="name"`, the instance name as it is (no escaping).
std::wstring objectInstancePath(const std::wstring& className, const std::wstring& instanceName);
