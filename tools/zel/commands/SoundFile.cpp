#include "tools/zel/commands/SoundFile.h"

#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Progress.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {

void AddSoundLike(MediaWriter* writer, SoundFormat format, const AVStream& stream, bool keepTexts) {
  AVChannelLayout layout{AV_CHANNEL_ORDER_UNSPEC, format.channels, {}, nullptr};
  if (format.speakers != 0) {
    layout.order = AV_CHANNEL_ORDER_NATIVE;
    layout.u.mask = format.speakers;
  } else if (format.channels <= 2) {
    // One or two channels need no names.
    av_channel_layout_default(&layout, format.channels);
  }
  writer->AddSound(format, layout, keepTexts ? &stream : nullptr);
}

std::string StorageText(const SoundEncoder& encoder, SoundFormat format) {
  std::string text;
  if (encoder.outRate() != format.sampleRate) {
    text = "stored at " + std::to_string(encoder.outRate()) + " Hz";
  }
  if (!encoder.layoutNote().empty()) AddToList(&text, encoder.layoutNote());
  return text;
}

void SoundFile::Write(MediaWriter* writer, const NextBlock& next) const {
  Progress progress(length, output.quiet);
  long long written = 0;
  int frames = 0;
  for (const short* block; block = next(&frames), frames > 0; written += frames) {
    if (written == 0) writer->Start(output.overwrite, 0);
    writer->WriteSound(reinterpret_cast<const std::uint8_t*>(block), frames);
    progress.Update(static_cast<double>(written) / format.sampleRate);
  }
  if (written == 0) throw Failure(source, "its sound is empty");
  writer->Finish();
  progress.Clear();
  if (output.quiet) return;
  const std::string storage = StorageText(writer->sound(), format);
  PrintOut(Printable(output.path) + ": " + story + ", " + FormatText(format) +
           (storage.empty() ? "" : " (" + storage + ")") + ": " +
           progress.Summary(static_cast<double>(written) / format.sampleRate) +
           (writer->lost().empty() ? "" : "; lost: " + writer->lost()) + "\n");
}

}  // namespace zel::tool
