// The WMI client interfaces of the host platform layer, with the platform's
// method order and signatures, and the codes, flags and CIM types in use.
#pragma once

#include "win32/base.h"
#include "win32/com.h"
#include "win32/oleauto.h"

using CIMTYPE = LONG;

enum CIMTYPE_ENUMERATION : CIMTYPE {
    CIM_ILLEGAL = 0xfff,
    CIM_EMPTY = 0,
    CIM_SINT8 = 16,
    CIM_UINT8 = 17,
    CIM_SINT16 = 2,
    CIM_UINT16 = 18,
    CIM_SINT32 = 3,
    CIM_UINT32 = 19,
    CIM_SINT64 = 20,
    CIM_UINT64 = 21,
    CIM_REAL32 = 4,
    CIM_REAL64 = 5,
    CIM_BOOLEAN = 11,
    CIM_STRING = 8,
    CIM_DATETIME = 101,
    CIM_REFERENCE = 102,
    CIM_CHAR16 = 103,
    CIM_OBJECT = 13,
    CIM_FLAG_ARRAY = 0x2000,
};

enum WBEM_CONDITION_FLAG_TYPE : LONG {
    WBEM_FLAG_ALWAYS = 0,
    WBEM_FLAG_ONLY_IF_TRUE = 0x1,
    WBEM_FLAG_ONLY_IF_FALSE = 0x2,
    WBEM_FLAG_ONLY_IF_IDENTICAL = 0x3,
    WBEM_MASK_PRIMARY_CONDITION = 0x3,
    WBEM_FLAG_KEYS_ONLY = 0x4,
    WBEM_FLAG_REFS_ONLY = 0x8,
    WBEM_FLAG_LOCAL_ONLY = 0x10,
    WBEM_FLAG_PROPAGATED_ONLY = 0x20,
    WBEM_FLAG_SYSTEM_ONLY = 0x30,
    WBEM_FLAG_NONSYSTEM_ONLY = 0x40,
    WBEM_MASK_CONDITION_ORIGIN = 0x70,
};

enum WBEMSTATUS : HRESULT {
    WBEM_NO_ERROR = 0,
    WBEM_S_NO_ERROR = 0,
    WBEM_S_FALSE = 1,
    WBEM_S_NO_MORE_DATA = 0x40005,
    WBEM_E_FAILED = static_cast<HRESULT>(0x80041001),
    WBEM_E_NOT_FOUND = static_cast<HRESULT>(0x80041002),
    WBEM_E_ACCESS_DENIED = static_cast<HRESULT>(0x80041003),
    WBEM_E_PROVIDER_FAILURE = static_cast<HRESULT>(0x80041004),
    WBEM_E_TYPE_MISMATCH = static_cast<HRESULT>(0x80041005),
    WBEM_E_OUT_OF_MEMORY = static_cast<HRESULT>(0x80041006),
    WBEM_E_INVALID_CONTEXT = static_cast<HRESULT>(0x80041007),
    WBEM_E_INVALID_PARAMETER = static_cast<HRESULT>(0x80041008),
    WBEM_E_NOT_AVAILABLE = static_cast<HRESULT>(0x80041009),
    WBEM_E_CRITICAL_ERROR = static_cast<HRESULT>(0x8004100A),
    WBEM_E_NOT_SUPPORTED = static_cast<HRESULT>(0x8004100C),
    WBEM_E_INVALID_NAMESPACE = static_cast<HRESULT>(0x8004100E),
    WBEM_E_INVALID_OBJECT = static_cast<HRESULT>(0x8004100F),
    WBEM_E_INVALID_CLASS = static_cast<HRESULT>(0x80041010),
    WBEM_E_INVALID_QUERY = static_cast<HRESULT>(0x80041017),
    WBEM_E_INVALID_QUERY_TYPE = static_cast<HRESULT>(0x80041018),
    WBEM_E_CALL_CANCELLED = static_cast<HRESULT>(0x80041032),
    WBEM_E_INVALID_METHOD = static_cast<HRESULT>(0x8004102E),
    WBEM_E_INVALID_METHOD_PARAMETERS = static_cast<HRESULT>(0x8004102F),
    WBEM_E_INVALID_OBJECT_PATH = static_cast<HRESULT>(0x8004103A),
    WBEM_E_TRANSPORT_FAILURE = static_cast<HRESULT>(0x80041015),
    WBEM_E_SHUTTING_DOWN = static_cast<HRESULT>(0x80041033),
};

enum WBEM_STATUS_TYPE : LONG {
    WBEM_STATUS_COMPLETE = 0,
    WBEM_STATUS_REQUIREMENTS = 1,
    WBEM_STATUS_PROGRESS = 2,
};

extern const CLSID CLSID_WbemLocator;
extern const IID IID_IWbemLocator;
extern const IID IID_IWbemServices;
extern const IID IID_IWbemClassObject;
extern const IID IID_IWbemObjectSink;

// Interfaces the module only passes along as null.
struct IWbemContext : IUnknown {
protected:
    ~IWbemContext() = default;
};
struct IWbemCallResult : IUnknown {
protected:
    ~IWbemCallResult() = default;
};
struct IEnumWbemClassObject : IUnknown {
protected:
    ~IEnumWbemClassObject() = default;
};
struct IWbemQualifierSet : IUnknown {
protected:
    ~IWbemQualifierSet() = default;
};

struct IWbemClassObject : IUnknown {
    STDMETHOD(GetQualifierSet)(IWbemQualifierSet** qualifiers) = 0;
    STDMETHOD(Get)(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) = 0;
    STDMETHOD(Put)(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) = 0;
    STDMETHOD(Delete)(LPCWSTR name) = 0;
    STDMETHOD(GetNames)(LPCWSTR qualifierName, LONG flags, VARIANT* qualifierValue, SAFEARRAY** names) = 0;
    STDMETHOD(BeginEnumeration)(LONG enumFlags) = 0;
    STDMETHOD(Next)(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type, LONG* flavor) = 0;
    STDMETHOD(EndEnumeration)() = 0;
    STDMETHOD(GetPropertyQualifierSet)(LPCWSTR property, IWbemQualifierSet** qualifiers) = 0;
    STDMETHOD(Clone)(IWbemClassObject** copy) = 0;
    STDMETHOD(GetObjectText)(LONG flags, BSTR* objectText) = 0;
    STDMETHOD(SpawnDerivedClass)(LONG flags, IWbemClassObject** newClass) = 0;
    STDMETHOD(SpawnInstance)(LONG flags, IWbemClassObject** newInstance) = 0;
    STDMETHOD(CompareTo)(LONG flags, IWbemClassObject* compareTo) = 0;
    STDMETHOD(GetPropertyOrigin)(LPCWSTR name, BSTR* className) = 0;
    STDMETHOD(InheritsFrom)(LPCWSTR ancestor) = 0;
    STDMETHOD(GetMethod)
    (LPCWSTR name, LONG flags, IWbemClassObject** inSignature, IWbemClassObject** outSignature) = 0;
    STDMETHOD(PutMethod)
    (LPCWSTR name, LONG flags, IWbemClassObject* inSignature, IWbemClassObject* outSignature) = 0;
    STDMETHOD(DeleteMethod)(LPCWSTR name) = 0;
    STDMETHOD(BeginMethodEnumeration)(LONG enumFlags) = 0;
    STDMETHOD(NextMethod)
    (LONG flags, BSTR* name, IWbemClassObject** inSignature, IWbemClassObject** outSignature) = 0;
    STDMETHOD(EndMethodEnumeration)() = 0;
    STDMETHOD(GetMethodQualifierSet)(LPCWSTR method, IWbemQualifierSet** qualifiers) = 0;
    STDMETHOD(GetMethodOrigin)(LPCWSTR methodName, BSTR* className) = 0;

protected:
    ~IWbemClassObject() = default;
};

struct IWbemObjectSink : IUnknown {
    STDMETHOD(Indicate)(LONG objectCount, IWbemClassObject** objects) = 0;
    STDMETHOD(SetStatus)(LONG flags, HRESULT result, BSTR param, IWbemClassObject* object) = 0;

protected:
    ~IWbemObjectSink() = default;
};

struct IWbemServices : IUnknown {
    STDMETHOD(OpenNamespace)
    (const BSTR strNamespace, LONG flags, IWbemContext* context, IWbemServices** workingNamespace,
     IWbemCallResult** result)
        = 0;
    STDMETHOD(CancelAsyncCall)(IWbemObjectSink* sink) = 0;
    STDMETHOD(QueryObjectSink)(LONG flags, IWbemObjectSink** responseHandler) = 0;
    STDMETHOD(GetObject)
    (const BSTR objectPath, LONG flags, IWbemContext* context, IWbemClassObject** object,
     IWbemCallResult** callResult)
        = 0;
    STDMETHOD(GetObjectAsync)
    (const BSTR objectPath, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(PutClass)
    (IWbemClassObject* object, LONG flags, IWbemContext* context, IWbemCallResult** callResult) = 0;
    STDMETHOD(PutClassAsync)
    (IWbemClassObject* object, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(DeleteClass)
    (const BSTR className, LONG flags, IWbemContext* context, IWbemCallResult** callResult) = 0;
    STDMETHOD(DeleteClassAsync)
    (const BSTR className, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(CreateClassEnum)
    (const BSTR superclass, LONG flags, IWbemContext* context, IEnumWbemClassObject** enumerator) = 0;
    STDMETHOD(CreateClassEnumAsync)
    (const BSTR superclass, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(PutInstance)
    (IWbemClassObject* instance, LONG flags, IWbemContext* context, IWbemCallResult** callResult) = 0;
    STDMETHOD(PutInstanceAsync)
    (IWbemClassObject* instance, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(DeleteInstance)
    (const BSTR objectPath, LONG flags, IWbemContext* context, IWbemCallResult** callResult) = 0;
    STDMETHOD(DeleteInstanceAsync)
    (const BSTR objectPath, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(CreateInstanceEnum)
    (const BSTR filter, LONG flags, IWbemContext* context, IEnumWbemClassObject** enumerator) = 0;
    STDMETHOD(CreateInstanceEnumAsync)
    (const BSTR filter, LONG flags, IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
    STDMETHOD(ExecQuery)
    (const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
     IEnumWbemClassObject** enumerator)
        = 0;
    STDMETHOD(ExecQueryAsync)
    (const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
     IWbemObjectSink* responseHandler)
        = 0;
    STDMETHOD(ExecNotificationQuery)
    (const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
     IEnumWbemClassObject** enumerator)
        = 0;
    STDMETHOD(ExecNotificationQueryAsync)
    (const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
     IWbemObjectSink* responseHandler)
        = 0;
    STDMETHOD(ExecMethod)
    (const BSTR objectPath, const BSTR methodName, LONG flags, IWbemContext* context,
     IWbemClassObject* inParams, IWbemClassObject** outParams, IWbemCallResult** callResult)
        = 0;
    STDMETHOD(ExecMethodAsync)
    (const BSTR objectPath, const BSTR methodName, LONG flags, IWbemContext* context,
     IWbemClassObject* inParams, IWbemObjectSink* responseHandler)
        = 0;

protected:
    ~IWbemServices() = default;
};

struct IWbemLocator : IUnknown {
    STDMETHOD(ConnectServer)
    (const BSTR networkResource, const BSTR user, const BSTR password, const BSTR locale, LONG securityFlags,
     const BSTR authority, IWbemContext* context, IWbemServices** services)
        = 0;

protected:
    ~IWbemLocator() = default;
};
