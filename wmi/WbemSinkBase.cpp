#include "wmi/WbemSinkBase.h"

#include "trace/Trace.h"

HRESULT STDMETHODCALLTYPE WbemSinkBase::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == IID_IUnknown || iid == IID_IWbemObjectSink) {
        *object = static_cast<IWbemObjectSink*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE WbemSinkBase::AddRef()
{
    return static_cast<ULONG>(++refCount_);
}

ULONG STDMETHODCALLTYPE WbemSinkBase::Release()
{
    const LONG before = refCount_.fetch_sub(1);
    if (before == 1) {
        ZT_TRACE(4, "Delete WbemSinkBase now, ref count == 0");
        delete this;
        return 0;
    }
    return static_cast<ULONG>(before - 1);
}

HRESULT STDMETHODCALLTYPE WbemSinkBase::Indicate(LONG /*objectCount*/, IWbemClassObject** /*objects*/)
{
    return WBEM_S_NO_ERROR;
}

HRESULT STDMETHODCALLTYPE WbemSinkBase::SetStatus(LONG /*flags*/, HRESULT /*result*/, BSTR /*param*/,
                                                  IWbemClassObject* /*object*/)
{
    return WBEM_S_NO_ERROR;
}
