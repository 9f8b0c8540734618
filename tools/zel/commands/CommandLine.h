// The arguments of a subcommand. The library that parses them is known here alone.
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

/// Declares what a subcommand takes, then parses its line. What is given by address receives the
/// values and must outlive the object; options that the line lacks leave it alone. `names` of an
/// option are such as "-r,--rate", and `placeholder` stands for its value in the help text.
class CommandLine {
 public:
  /// Of "zel NAME", with --help and --version.
  CommandLine(const std::string& name, const std::string& description);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// An argument that must be there.
  void AddFile(const std::string& name, std::string* value, const std::string& help);
  /// The last arguments, one or more.
  void AddFiles(const std::string& name, std::vector<std::string>* values, const std::string& help);
  /// The last arguments, `least` to `most` of them.
  void AddFiles(const std::string& name, std::vector<std::string>* values, int least, int most,
                const std::string& help);

  /// An option without a value, which makes `value` true.
  void AddFlag(const std::string& names, bool* value, const std::string& help);
  /// An option with any text.
  void AddText(const std::string& names, const std::string& placeholder,
               std::optional<std::string>* value, const std::string& help);
  /// An option that must be there.
  void AddRequiredText(const std::string& names, const std::string& placeholder, std::string* value,
                       const std::string& help);
  /// A whole number from `least` to `most`.
  void AddNumber(const std::string& names, const std::string& placeholder, int* value, int least,
                 int most, const std::string& help);
  /// An option that `take` makes sense of; it may throw UsageError.
  void AddParsed(const std::string& names, const std::string& placeholder,
                 const std::function<void(const std::string& text)>& take, const std::string& help);

  /// `option` makes no sense without `other`. Both have been added.
  void MakeNeed(const std::string& option, const std::string& other);
  /// `option` makes no sense with `other`.
  void MakeExclude(const std::string& option, const std::string& other);

  /// Parses the line from the subcommand's name on.
  /// @return false after --help or --version, which it has answered
  /// @throws UsageError
  bool Parse(int argc, char** argv);

 private:
  std::unique_ptr<CLI::App> parser_;
};

/// "zel" and its version, as a line.
std::string VersionText();

}  // namespace zel::tool
