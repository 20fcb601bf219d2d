// Internal: the WMI result codes the sim answers with, as HRESULTs. The SDK
// declares them as enumerators of an unsigned enum; the casts keep both builds
// free of narrowing warnings, and the few codes the host headers lack are here.
#pragma once

#include "platform.h"

namespace sim::codes {

constexpr HRESULT ok = S_OK;
constexpr HRESULT noMoreData = static_cast<HRESULT>(WBEM_S_NO_MORE_DATA);
constexpr HRESULT sFalse = static_cast<HRESULT>(WBEM_S_FALSE);
constexpr HRESULT failed = static_cast<HRESULT>(WBEM_E_FAILED);
constexpr HRESULT notFound = static_cast<HRESULT>(WBEM_E_NOT_FOUND);
constexpr HRESULT typeMismatch = static_cast<HRESULT>(WBEM_E_TYPE_MISMATCH);
constexpr HRESULT outOfMemory = static_cast<HRESULT>(WBEM_E_OUT_OF_MEMORY);
constexpr HRESULT invalidParameter = static_cast<HRESULT>(WBEM_E_INVALID_PARAMETER);
constexpr HRESULT notSupported = static_cast<HRESULT>(WBEM_E_NOT_SUPPORTED);
constexpr HRESULT invalidNamespace = static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE);
constexpr HRESULT invalidClass = static_cast<HRESULT>(WBEM_E_INVALID_CLASS);
constexpr HRESULT invalidQuery = static_cast<HRESULT>(WBEM_E_INVALID_QUERY);
constexpr HRESULT invalidQueryType = static_cast<HRESULT>(WBEM_E_INVALID_QUERY_TYPE);
constexpr HRESULT invalidMethod = static_cast<HRESULT>(WBEM_E_INVALID_METHOD);
constexpr HRESULT invalidObjectPath = static_cast<HRESULT>(WBEM_E_INVALID_OBJECT_PATH);
constexpr HRESULT shuttingDown = static_cast<HRESULT>(WBEM_E_SHUTTING_DOWN);
constexpr HRESULT callCancelled = static_cast<HRESULT>(WBEM_E_CALL_CANCELLED);
constexpr HRESULT invalidMethodParameters = static_cast<HRESULT>(WBEM_E_INVALID_METHOD_PARAMETERS);
constexpr HRESULT unexpected = static_cast<HRESULT>(0x8004101D);  // WBEM_E_UNEXPECTED
constexpr HRESULT readOnly = static_cast<HRESULT>(0x80041023);  // WBEM_E_READ_ONLY

}  // namespace sim::codes
