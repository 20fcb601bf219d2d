// VARIANTs of any tag made from fuzz input, with no pointer that doesn't
// point where its tag says: the tag and the value bits are the input's, the
// strings, arrays and objects behind them are real.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "host/CountingUnknown.h"
#include "platform.h"
#include "sim/WmiService.h"

// What by-reference values and caller-owned arrays point at, and the values
// the simulated objects copied. It outlives every VARIANT made with it, and
// frees what it holds when it ends.
class VariantArena {
public:
    VariantArena() = default;
    VariantArena(const VariantArena&) = delete;
    VariantArena& operator=(const VariantArena&) = delete;
    ~VariantArena();

    // `size` zeroed bytes, 16-byte aligned, exactly that long for the sanitizers.
    void* bytes(std::size_t size);
    BSTR* bstrSlot(BSTR text);
    // A counting object that answers only IUnknown; one reference for the caller.
    IUnknown* unknown();
    // Ends `value` (endVariant) when the arena ends: a simulated object's copy
    // of a tag VariantCopy refuses holds its bits, pointers included.
    void keep(const VARIANT& value) { kept_.push_back(value); }

private:
    std::vector<VARIANT> kept_;
    std::vector<std::unique_ptr<std::uint8_t[]>> blocks_;
    std::vector<BSTR> bstrs_;
    std::vector<std::unique_ptr<host::CountingUnknown>> unknowns_;
};

// The simulated service whose objects the targets fill
// (sim::WmiService::makeObject), its faults and call log cleared.
sim::WmiService& freshService();

// A value of a tag read from `in`. By-value strings, arrays and interfaces
// belong to the VARIANT (VariantClear ends them); by-reference targets and
// caller-owned array descriptors belong to `arena`. `object`, if given, is
// what a VT_UNKNOWN holds (with a reference of its own).
VARIANT makeVariant(FuzzInput& in, VariantArena& arena, IUnknown* object = nullptr);

// Ends a value made by makeVariant: VariantClear, and for the array tags it
// refuses (an array of VT_EMPTY, say) the array all the same.
void endVariant(VARIANT& value);

// A one-dimensional or deeper array from `in`: either made by
// SafeArrayCreateVector (owned by the VARIANT that takes it) or a descriptor
// with any element size, bounds and count (owned by `arena`). May be null.
SAFEARRAY* makeArray(FuzzInput& in, VariantArena& arena);
