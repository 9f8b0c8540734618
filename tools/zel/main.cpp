// The `zel` command: picks the subcommand and reports how it ended.

#include <cstdio>
#include <exception>
#include <new>

#include "media/Ffmpeg.h"
#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/files/Interruption.h"
#include "tools/zel/files/MemoryLimit.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

constexpr Command kCommands[] = {
    {"dub", "replace the sound of a file with another track", RunDub},
    {"mix", "mix the sounds of several files", RunMix},
    {"convert", "write the sound of a file at another rate or in other channels", RunConvert},
    {"info", "describe files, their programs and streams", RunInfo},
    {"frame", "take a picture of a video", RunFrame},
    {"wave", "draw the wave forms of files under each other", RunWave},
};

std::string HelpText() {
  std::string text =
      "Usage: zel COMMAND [ARGUMENT...]\n"
      "Dub media files; mix, convert, describe and picture what is in them.\n\nCommands:\n";
  for (const Command& command : kCommands) {
    char line[128];
    std::snprintf(line, sizeof(line), "  %-9s %s\n", command.name, command.summary);
    text += line;
  }
  return text +
         "\nOptions:\n"
         "  -h, --help     show this text (zel COMMAND --help: a command's own)\n"
         "      --version  show the version\n\n"
         "Exit codes: 0 done, 1 failed, 2 wrong usage, 128+N ended by signal N.\n";
}

int Run(int argc, char** argv) {
  if (argc < 2) throw UsageError("a command is missing");
  const std::string first = argv[1];
  if (first == "-h" || first == "--help" || first == "help") {
    PrintOut(HelpText());
    return kDone;
  }
  if (first == "--version") {
    PrintOut(VersionText());
    return kDone;
  }
  for (const Command& command : kCommands) {
    if (first != command.name) continue;
    try {
      return command.run(argc - 1, argv + 1);
    } catch (const UsageError& error) {
      std::fprintf(stderr, "zel %s: %s\nTry 'zel %s --help' for more information.\n", command.name,
                   Printable(error.what()).c_str(), command.name);
      return kUsage;
    }
  }
  throw UsageError((first.starts_with('-') ? "unknown option '" : "unknown command '") + first +
                   "'");
}

}  // namespace
}  // namespace zel::tool

int main(int argc, char** argv) {
  using namespace zel::tool;
  InstallSignalHandlers();
  zel::media::CaptureLog();
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    Report(error);
    std::fputs("Try 'zel --help' for more information.\n", stderr);
    return kUsage;
  } catch (const ClosedPipe&) {
    return kClosedPipe;
  } catch (const std::bad_alloc& error) {
    std::fprintf(stderr, "zel: out of memory%s\n", MemoryLimitText(error).c_str());
  } catch (const std::exception& error) {
    Report(error, MemoryLimitText(error));
  }
  return kFailed;
}
