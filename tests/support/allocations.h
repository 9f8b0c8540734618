// Link allocations.cpp to have every allocation of the program counted.
#pragma once

/// Allocations made so far, by any thread.
long AllocationCount();
