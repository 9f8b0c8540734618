#include "tools/zel/commands/SoundFile.h"

#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Progress.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {

void AddSoundLike(MediaWriter* writer, SoundFormat format, const AVStream& stream, bool keepTexts) {
  AVChannelLayout layout = stream.codecpar->ch_layout;
  if (layout.order != AV_CHANNEL_ORDER_NATIVE || layout.nb_channels != format.channels) {
    av_channel_layout_default(&layout, format.channels);
  }
  writer->AddSound(format, layout, keepTexts ? &stream : nullptr);
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
  const int outRate = writer->sound().outRate();
  PrintOut(Printable(output.path) + ": " + story + ", " + FormatText(format) +
           (outRate != format.sampleRate ? " (stored at " + std::to_string(outRate) + " Hz)" : "") +
           ": " + progress.Summary(static_cast<double>(written) / format.sampleRate) + "\n");
}

}  // namespace zel::tool
