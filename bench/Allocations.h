// Counts the heap allocations of the calling thread: the bench replaces
// malloc and its relatives (which operator new uses) with counting versions
// that forward to the C library's own.
#pragma once

// Allocations made by the calling thread since it started.
long threadAllocations();

// Allocations of the calling thread during `body`.
template <typename Body> long allocationsDuring(Body&& body)
{
    const long before = threadAllocations();
    body();
    return threadAllocations() - before;
}
