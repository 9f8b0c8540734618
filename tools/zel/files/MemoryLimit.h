// The most memory that the command takes.
#pragma once

#include <exception>
#include <string>

namespace zel::tool {

/// Limits the data of the process, as RLIMIT_DATA does: all that it writes, but no code of
/// libraries. An allocation beyond that fails.
/// @param size bytes, or with a suffix K, M or G multiples of 1,024: at least 16M
/// @throws UsageError when it is not such a size, Failure when the system refuses it
void LimitMemory(const std::string& size);

/// "; --max-memory is 500M", to be added to a failure whose reason may be the limit; empty for
/// others, and without a limit.
std::string MemoryLimitText(const std::exception& failure);

}  // namespace zel::tool
