#include "tools/zel/text/Language.h"

#include <algorithm>
#include <string_view>

namespace zel::tool {
namespace {

// A space precedes each, so that a search finds whole codes.
constexpr std::string_view kQuickTime =
    " alb amh ara arm asm aym aze baq bel ben bul bur cat ces chi dan dut dzo eng epo est fin "
    "fra geo ger gre grn guj heb hin hun ice ind iri ita jav jpn kan kas kaz khm kin kir kor "
    "kur lao lat lav lit mac mal mar may mlg mlt mol mon nep nor nya ori orm per pol por pus "
    "que ron run rus san sin slk slv snd som spa sve swa tam tat tel tgk tgl tha tib tir tuk "
    "tur uig ukr urd uzb vie wel yid";

// Other names of languages: those of ISO 639-2, and the muxer's own ones (the last line).
constexpr std::string_view kOtherNames[][2] = {
    {"sqi", "alb"}, {"hye", "arm"}, {"eus", "baq"}, {"mya", "bur"}, {"zho", "chi"}, {"cze", "ces"},
    {"nld", "dut"}, {"fre", "fra"}, {"kat", "geo"}, {"deu", "ger"}, {"ell", "gre"}, {"isl", "ice"},
    {"mkd", "mac"}, {"msa", "may"}, {"fas", "per"}, {"rum", "ron"}, {"slo", "slk"}, {"bod", "tib"},
    {"cym", "wel"}, {"swe", "sve"}, {"hrv", "hr "}, {"srp", "sr "}, {"fao", "fo "}, {"pan", "pa "}};

}  // namespace

std::string StorableLanguage(const std::string& code, bool isQuickTime) {
  const bool isCode = code.size() == 3 && std::all_of(code.begin(), code.end(),
                                                      [](char c) { return c >= 'a' && c <= 'z'; });
  if (!isCode) return {};
  if (!isQuickTime || kQuickTime.find(" " + code) != std::string_view::npos) return code;
  for (const auto& [name, stored] : kOtherNames) {
    if (name == code) return std::string(stored);
  }
  return {};
}

}  // namespace zel::tool
