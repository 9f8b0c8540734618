// Link Allocations.cpp to have every allocation of the program, the library's included, counted and
// held to its rules: an array is freed as an array and a single object singly. A violation aborts.
#pragma once

/// Allocations made so far, by any thread.
long AllocationCount();

/// Blocks allocated and not yet freed, by any thread.
long LiveAllocations();

/// Makes the allocation after the next `count` ones throw std::bad_alloc, once. Negative: none.
void FailAllocationAfter(long count);
