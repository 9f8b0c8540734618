// Feeds bytes to what parses or converts text: delays, ids, file names, texts for terminals.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "media/Utf8.h"
#include "tests/support/Host.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"
#include "zel/platform/COMSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using zel::test::Require;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    Require(std::isfinite(zel::tool::ParseDelay("--delay", text)), "a time");
  } catch (const zel::tool::UsageError&) {
  } catch (const zel::tool::Failure&) {
  }

  const std::wstring wide = zel::media::ToWide(text);
  Require(zel::media::ToUtf8(wide) == text, "the same bytes again");
  const std::string shown = zel::tool::Printable(text);
  for (const char c : shown) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F, "text");
  Require(zel::tool::Printable(shown) == shown, "what stays printable");
  zel::tool::PrintableJson(text);

  _GUID id;
  const _GUID none = {};
  const bool isId = CLSIDFromString(wide.c_str(), &id) == S_OK;
  Require(isId || std::memcmp(&id, &none, sizeof(id)) == 0, "no id from other text");
  return 0;
}
