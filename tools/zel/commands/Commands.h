// The subcommands.
#pragma once

#include <exception>
#include <string>

namespace zel::tool {

/// A subcommand: `run` gets the command line from its name on and returns an exit code. It may
/// throw UsageError and Failure.
struct Command {
  const char* name;
  const char* summary;
  int (*run)(int argc, char** argv);
};

int RunConvert(int argc, char** argv);
int RunDub(int argc, char** argv);
int RunFrame(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunMix(int argc, char** argv);
int RunWave(int argc, char** argv);

/// One line on standard error, whatever the names and texts in it hold.
void Report(const std::exception& failure);

/// Standard output, flushed. @throws Failure when it cannot take it all, ClosedPipe when nobody
/// reads it
void PrintOut(const std::string& text);

}  // namespace zel::tool
