// Standard output and standard error.
#pragma once

#include <exception>
#include <string>

namespace zel::tool {

/// Writes one line about `failure` to standard error; its text is made printable.
void Report(const std::exception& failure);

/// Writes `text` to standard output and flushes it.
/// @throws Failure when not all of it can be written, ClosedPipe when nobody reads it
void PrintOut(const std::string& text);

}  // namespace zel::tool
