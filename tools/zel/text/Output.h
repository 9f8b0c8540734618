// Standard output and standard error.
#pragma once

#include <exception>
#include <string>

namespace zel::tool {

/// Writes one line about `failure` to standard error; its text is made printable. `note` follows
/// it.
void Report(const std::exception& failure, const std::string& note = {});

/// Writes `text` to standard output and flushes it.
/// @throws Failure when not all of it can be written, ClosedPipe when nobody reads it
void PrintOut(const std::string& text);

}  // namespace zel::tool
