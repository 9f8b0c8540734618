#include "tools/zel/commands/CommandLine.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "tools/zel/files/Confinement.h"
#include "tools/zel/files/MemoryLimit.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"

namespace zel::tool {
namespace {

/// Writes the usage line with required options, as they are typed.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* app, std::string name) const override {
    std::string usage = "Usage: " + name;
    for (const CLI::Option* option : app->get_options()) {
      if (option->get_positional()) usage += " " + make_option_usage(option);
    }
    for (const CLI::Option* option : app->get_options()) {
      if (!option->get_positional() && option->get_required()) {
        const bool isShort = !option->get_snames().empty();
        usage +=
            isShort ? " -" + option->get_snames().front() : " --" + option->get_lnames().front();
        usage += " " + option->get_type_name();
      }
    }
    return usage + " [OPTIONS]\n";
  }

  std::string make_option_usage(const CLI::Option* option) const override {
    std::string usage = make_option_name(option, true);
    for (int i = 1; i < option->get_expected_min(); ++i) usage += " " + option->get_name();
    return usage + (option->get_expected_max() > option->get_expected_min() ? "..." : "");
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
  }
};

int ParseNumber(const std::string& option, const std::string& text, int least, int most) {
  const bool plus = text.starts_with('+') && !text.starts_with("+-");
  const char* const begin = text.data() + (plus ? 1 : 0);
  const char* const end = text.data() + text.size();
  int value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value);
  if (error == std::errc::invalid_argument || stop != end) {
    throw UsageError(option + ": '" + text + "' is no whole number");
  }
  if (error != std::errc() || value < least || value > most) {
    throw UsageError(option + ": " + text + " is not from " + std::to_string(least) + " to " +
                     std::to_string(most));
  }
  return value;
}

}  // namespace

CommandLine::CommandLine(const std::string& name, const std::string& description)
    : parser_(std::make_unique<CLI::App>(description, "zel " + name)) {
  parser_->set_help_flag("-h,--help", "Show this text");
  parser_->set_version_flag("--version", VersionText(), "Show the version");
  parser_->add_flag_callback("--no-sandbox", NeverConfine,
                             "Keep all rights while files are decoded");
  AddParsed("--max-memory", "SIZE", LimitMemory,
            "Fail rather than take more memory than SIZE, such as 500M or 2G");
  parser_->formatter(std::make_shared<HelpFormatter>());
  parser_->get_formatter()->column_width(30);
}

CommandLine::~CommandLine() = default;

void CommandLine::AddFile(const std::string& name, std::string* value, const std::string& help) {
  parser_->add_option(name, *value, help)->required();
}

void CommandLine::AddFiles(const std::string& name, std::vector<std::string>* values,
                           const std::string& help) {
  parser_->add_option(name, *values, help)->required();
}

void CommandLine::AddFiles(const std::string& name, std::vector<std::string>* values, int least,
                           int most, const std::string& help) {
  parser_->add_option(name, *values, help)->required()->expected(least, most);
}

void CommandLine::AddFlag(const std::string& names, bool* value, const std::string& help) {
  parser_->add_flag(names, *value, help);
}

void CommandLine::AddCall(const std::string& names, const std::function<void()>& call,
                          const std::string& help) {
  parser_->add_flag_callback(names, call, help);
}

void CommandLine::AddText(const std::string& names, const std::string& placeholder,
                          std::optional<std::string>* value, const std::string& help) {
  AddParsed(
      names, placeholder, [value](const std::string& text) { *value = text; }, help);
}

void CommandLine::AddRequiredText(const std::string& names, const std::string& placeholder,
                                  std::string* value, const std::string& help) {
  parser_->add_option(names, *value, help)->type_name(placeholder)->required();
}

void CommandLine::AddNumber(const std::string& names, const std::string& placeholder, int* value,
                            int least, int most, const std::string& help) {
  const std::string option = names.substr(names.rfind(',') + 1);
  AddParsed(
      names, placeholder,
      [=](const std::string& text) { *value = ParseNumber(option, text, least, most); }, help);
}

void CommandLine::AddParsed(const std::string& names, const std::string& placeholder,
                            const std::function<void(const std::string& text)>& take,
                            const std::string& help) {
  parser_->add_option_function<std::string>(names, take, help)->type_name(placeholder);
}

void CommandLine::MakeNeed(const std::string& option, const std::string& other) {
  parser_->get_option(option)->needs(parser_->get_option(other));
}

void CommandLine::MakeExclude(const std::string& option, const std::string& other) {
  parser_->get_option(option)->excludes(parser_->get_option(other));
}

bool CommandLine::Parse(int argc, char** argv) {
  try {
    parser_->parse(argc, argv);
    return true;
  } catch (const CLI::CallForHelp&) {
    PrintOut(parser_->help());
  } catch (const CLI::CallForVersion&) {
    PrintOut(VersionText());
  } catch (const CLI::ArgumentMismatch& error) {
    const std::string text = error.what();
    const std::size_t most = text.find(": At Most 1 required");
    throw UsageError(most == std::string::npos ? text
                                               : text.substr(0, most) + ": given more than once");
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  return false;
}

std::string VersionText() {
  return "zel " ZEL_VERSION "\nsandbox: " + ConfinementText() + "\n";
}

}  // namespace zel::tool
