// The arguments of a subcommand. Only this file uses the library that parses them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace zel::tool {

/// Declares what a subcommand takes, then parses its line. Pointers receive the values and must
/// stay valid for as long as the object; without the option, their targets keep their values. The
/// names of an option look like "-r,--rate"; `placeholder` stands for its value in the help text.
class CommandLine {
 public:
  /// Declares "zel NAME" with --help and --version.
  CommandLine(const std::string& name, const std::string& description);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// A required argument.
  void AddFile(const std::string& name, std::string* value, const std::string& help);
  /// The last arguments, one or more.
  void AddFiles(const std::string& name, std::vector<std::string>* values, const std::string& help);
  /// The last arguments, `least` to `most` of them.
  void AddFiles(const std::string& name, std::vector<std::string>* values, int least, int most,
                const std::string& help);

  /// An option without a value. It sets `value` to true.
  void AddFlag(const std::string& names, bool* value, const std::string& help);
  /// An option without a value. It makes Parse call `call`.
  void AddCall(const std::string& names, const std::function<void()>& call,
               const std::string& help);
  /// An option with any text.
  void AddText(const std::string& names, const std::string& placeholder,
               std::optional<std::string>* value, const std::string& help);
  /// A required option.
  void AddRequiredText(const std::string& names, const std::string& placeholder, std::string* value,
                       const std::string& help);
  /// A whole number from `least` to `most`.
  void AddNumber(const std::string& names, const std::string& placeholder, int* value, int least,
                 int most, const std::string& help);
  /// An option whose value `take` parses; it may throw UsageError.
  void AddParsed(const std::string& names, const std::string& placeholder,
                 const std::function<void(const std::string& text)>& take, const std::string& help);

  /// Makes `option` an error without `other`. Add both before.
  void MakeNeed(const std::string& option, const std::string& other);
  /// Makes `option` and `other` together an error. Add both before.
  void MakeExclude(const std::string& option, const std::string& other);

  /// Parses the line from the subcommand's name on.
  /// @return false after --help or --version, whose texts it prints
  /// @throws UsageError
  bool Parse(int argc, char** argv);

 private:
  std::unique_ptr<CLI::App> parser_;
};

/// A line with "zel" and its version.
std::string VersionText();

}  // namespace zel::tool
