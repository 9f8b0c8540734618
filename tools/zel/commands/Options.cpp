#include "tools/zel/commands/Options.h"

#include <sys/stat.h>

#include <charconv>

#include "tools/zel/files/Confinement.h"
#include "tools/zel/files/Container.h"
#include "tools/zel/files/PendingFile.h"
#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

bool SameFile(const std::string& a, const std::string& b) {
  struct stat first = {};
  struct stat second = {};
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::uint32_t ParseId(const std::string& option, const std::string& text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const char* const begin = text.data() + (hex ? 2 : 0);
  const char* const end = text.data() + text.size();
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value, hex ? 16 : 10);
  if (error != std::errc() || stop != end) {
    throw UsageError(option + ": '" + text + "' is no id");
  }
  return value;
}

}  // namespace

void OutputOptions::AddTo(CommandLine* line) {
  AddTo(line, "the container: " + KnownSuffixes());
}

void OutputOptions::AddTo(CommandLine* line, const std::string& tells, const std::string& silence) {
  line->AddRequiredText("-o,--output", "OUTPUT", &path, "File to write; its name tells " + tells);
  line->AddFlag("--overwrite", &overwrite, "Replace an existing OUTPUT");
  line->AddCall("--no-sync", PendingFile::NeverSync,
                "Do not wait until OUTPUT is on the disk: faster, but a power failure may lose it");
  line->AddFlag("-q,--quiet", &quiet, silence);
}

void OutputOptions::Check(const std::vector<std::string>& sources) const {
  for (const std::string& source : sources) {
    if (SameFile(path, source)) throw Failure(path, "is the same file as " + source);
  }
  PendingFile::Check(path, overwrite);
  Confine(sources, path);
}

void SelectionOptions::AddTo(CommandLine* line, const std::string& file) {
  line->AddParsed(
      "--stream", "ID", [this](const std::string& text) { stream = ParseId("--stream", text); },
      "Audio stream of " + file + " to use, by its id as zel info shows it");
  line->AddParsed(
      "--program", "ID", [this](const std::string& text) { program = ParseId("--program", text); },
      "Program of " + file + " to use, by its id: its first audio stream, or --stream of it");
}

DecodedSound SelectionOptions::Open(IMediaDecoderMgr* manager, const std::string& path) const {
  return OpenSound(manager, path, SelectSound(manager, path, program, stream));
}

PictureSize ParseSize(const std::string& option, const std::string& text,
                      const PictureSize& least) {
  const auto pair = ParsePair(text, 'x');
  if (!pair) throw UsageError(option + ": '" + text + "' is no size such as 640x360");
  const PictureSize size{pair->first, pair->second};
  if (size.width < least.width || size.height < least.height || size.width > kMaxPictureSide ||
      size.height > kMaxPictureSide) {
    throw UsageError(option + ": " + text + " is not from " + SizeText(least) + " to " +
                     SizeText({kMaxPictureSide, kMaxPictureSide}));
  }
  return size;
}

std::optional<std::pair<int, int>> ParsePair(std::string_view text, char separator) {
  std::pair<int, int> pair;
  const char* end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, pair.first);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != separator) return std::nullopt;
  const auto second = std::from_chars(first.ptr + 1, end, pair.second);
  if (second.ec != std::errc() || second.ptr != end) return std::nullopt;
  return pair;
}

}  // namespace zel::tool
