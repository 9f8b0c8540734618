// Options that several commands have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/files/DecodedSound.h"
#include "tools/zel/picture/PictureFile.h"

namespace zel::tool {

/// Where the result goes, and what is printed about it.
struct OutputOptions {
  std::string path;
  bool overwrite = false;
  bool quiet = false;

  /// Adds --output, --overwrite and --quiet to `line`, which must not outlive this object.
  void AddTo(CommandLine* line);
  /// The same for other files than sound and video.
  /// @param tells what the suffix decides, for the help text
  /// @param silence what --quiet does, for the help text
  void AddTo(CommandLine* line, const std::string& tells,
             const std::string& silence = "No progress and no closing line");
  /// Checks, before anything is opened, that the file can be written and is not one of `sources`
  /// under another name. From then on the process can open no other files.
  /// @throws Failure
  void Check(const std::vector<std::string>& sources) const;
};

/// Which sound of a file to use.
struct SelectionOptions {
  std::optional<std::uint32_t> stream;
  std::optional<std::uint32_t> program;

  /// Adds --stream and --program to `line`, which must not outlive this object.
  /// @param file what the help text calls the file
  void AddTo(CommandLine* line, const std::string& file);
  /// Opens the chosen sound of `path`. @throws Failure
  DecodedSound Open(IMediaDecoderMgr* manager, const std::string& path) const;
};

/// Parses the value of `option`, a size of `least` to kMaxPictureSide in both directions.
/// @throws UsageError
PictureSize ParseSize(const std::string& option, const std::string& text, const PictureSize& least);

/// Two whole numbers with `separator` between them; nothing for any other text.
std::optional<std::pair<int, int>> ParsePair(std::string_view text, char separator);

}  // namespace zel::tool
