// Feeds bytes to what parses or converts text: delays, ids, file names, texts for terminals.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "media/Utf8.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"
#include "zel/platform/COMSupport.h"

namespace {

void Require(bool kept) {
  if (!kept) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    Require(std::isfinite(zel::tool::ParseDelay("--delay", text)));
  } catch (const zel::tool::UsageError&) {
  } catch (const zel::tool::Failure&) {
  }

  const std::wstring wide = zel::media::ToWide(text);
  Require(zel::media::ToUtf8(wide) == text);
  const std::string shown = zel::tool::Printable(text);
  for (const char c : shown) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  Require(zel::tool::Printable(shown) == shown);
  zel::tool::PrintableJson(text);

  _GUID id;
  if (CLSIDFromString(wide.c_str(), &id) != S_OK) {
    const _GUID none = {};
    Require(std::memcmp(&id, &none, sizeof(id)) == 0);
  }
  return 0;
}
