// The subcommands.
#pragma once

namespace zel::tool {

/// A subcommand.
struct Command {
  const char* name;
  const char* summary;
  /// Gets the command line from the subcommand's name on, and returns an exit code.
  /// @throws UsageError, Failure
  int (*run)(int argc, char** argv);
};

int RunConvert(int argc, char** argv);
int RunDub(int argc, char** argv);
int RunFrame(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunMix(int argc, char** argv);
int RunWave(int argc, char** argv);

}  // namespace zel::tool
