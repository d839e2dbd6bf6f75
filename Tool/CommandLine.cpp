#include "Tool/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "Tool/InputFile.h"

namespace tavlo {

namespace {

constexpr const char* kWhereToLook = "; 'tavlo help render' shows the usage";

[[noreturn]] void raiseUsage(const std::string& reason) {
  throw Failure::ofUsage(reason + kWhereToLook);
}

// The library names them too, the last one first.
[[noreturn]] void raiseUnexpected(const std::vector<std::string>& arguments) {
  std::string reason =
      arguments.size() > 1 ? "The following arguments were not expected:" : "The following argument was not expected:";
  for (const std::string& argument : arguments) reason += ' ' + argument;
  raiseUsage(reason);
}

RenderOptions::Definition definitionFrom(const std::string& argument) {
  const std::size_t sign = argument.find('=');
  if (sign == std::string::npos) raiseUsage("-D " + argument + ": NAME=TEXT or NAME:=JSON is expected");
  const bool isJSON = sign > 0 && argument[sign - 1] == ':';
  const std::string name = argument.substr(0, isJSON ? sign - 1 : sign);
  if (name.empty()) raiseUsage("-D " + argument + ": a name is expected before the sign");
  return {name, argument.substr(sign + 1), isJSON};
}

void requireFileNames(const RenderOptions& options) {
  const bool isAnyEmpty = options.templateFile.empty() || options.outputFile == "" ||
                          std::count(options.dataFiles.begin(), options.dataFiles.end(), "") > 0;
  if (isAnyEmpty) raiseUsage("The name of a file is empty");
}

// Standard input can be read once.
void requireOneReaderOfStandardInput(const RenderOptions& options) {
  auto readers = std::count(options.dataFiles.begin(), options.dataFiles.end(), kStandardStream);
  if (options.templateFile == kStandardStream) ++readers;
  if (readers > 1) raiseUsage("Only one of the template and the data files can be '-', standard input");
}

// The program's options, as the library for them wants them.
class Parser {
 public:
  Parser() {
    app_.name("tavlo");
    app_.set_version_flag("--version", "tavlo " TAVLO_VERSION, "Print the version and exit");
    app_.set_help_flag("-h,--help", "Print this help and exit");
    app_.require_subcommand(0, 1);
    describeRender();
    help_->add_option("COMMAND", helpedCommand_, "The command")->type_name("");
  }

  CommandLine parse(std::vector<std::string> arguments) {
    std::reverse(arguments.begin(), arguments.end());  // the library takes them from the back
    try {
      app_.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
      return {app_.help(), {}};
    } catch (const CLI::CallForVersion& version) {
      return {version.what() + std::string("\n"), {}};
    } catch (const CLI::ExtrasError&) {
      raiseUnexpected(app_.remaining(true));
    } catch (const CLI::ParseError& error) {
      raiseUsage(error.what());
    }
    if (help_->parsed()) return {helpText(), {}};
    if (!render_->parsed()) throw Failure::ofUsage("A command is expected; 'tavlo --help' lists the commands");
    requireFileNames(options_);
    requireOneReaderOfStandardInput(options_);
    return {{}, options_};
  }

 private:
  void describeRender() {
    render_->footer(
        "Exit status: 0 rendered; 1 the template failed; 2 wrong usage, or a file cannot be read or written");
    render_->add_option("TEMPLATE", options_.templateFile, "The template file; '-' is standard input")
        ->required()
        ->type_name("");
    addRepeated("-d,--data", "FILE",
                "A JSON file ('-' is standard input) whose members become globals; a later one wins",
                [this](const std::string& file) { options_.dataFiles.push_back(file); });
    addRepeated("-D,--define", "NAME=TEXT", "One global string, or with NAME:=JSON any value; wins over --data",
                [this](const std::string& argument) { options_.definitions.push_back(definitionFrom(argument)); });
    render_
        ->add_option("-o,--output", options_.outputFile,
                     "Where the text goes, instead of standard output; a file is replaced only on success")
        ->type_name("FILE");
    render_->add_flag_callback(
        "--no-library", [this] { options_.hasLibrary = false; }, "Register no functions");
    render_->add_option("--error-format", errorFormat_, "How errors are written: text (the default) or json")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}));
  }

  // An option with one value that may be given again and again. The value is taken as it is: the library's own reading
  // of lists would give brackets and braces a meaning.
  template <class Take>
  void addRepeated(const char* names, const char* typeName, const char* description, Take take) {
    render_
        ->add_option(
            names,
            [take](const CLI::results_t& values) {
              std::for_each(values.begin(), values.end(), take);
              return true;
            },
            description)
        ->type_name(typeName)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
  }

  std::string helpText() {
    if (helpedCommand_.empty()) return app_.get_formatter()->make_help(&app_, "tavlo", CLI::AppFormatMode::Normal);
    for (const CLI::App* command : {render_, help_}) {
      if (command->get_name() == helpedCommand_) return command->help("tavlo");
    }
    throw Failure::ofUsage("There is no command '" + helpedCommand_ + "'; 'tavlo --help' lists the commands");
  }

  RenderOptions options_;
  std::string errorFormat_;
  std::string helpedCommand_;
  CLI::App app_{"Renders text templates"};
  CLI::App* render_ = app_.add_subcommand("render", "Render a template");        // owned by app_
  CLI::App* help_ = app_.add_subcommand("help", "Print how a command is used");  // owned by app_
};

}  // namespace

CommandLine CommandLine::parse(const std::vector<std::string>& arguments) {
  return Parser().parse(arguments);
}

ErrorFormat CommandLine::errorFormatOf(const std::vector<std::string>& arguments) {
  constexpr std::string_view kOption = "--error-format";
  constexpr std::array<std::string_view, 7> kWithValue = {kOption, "-d", "--data", "-D", "--define", "-o", "--output"};
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string& argument = arguments[index];
    if (argument == "--") break;
    if (argument == std::string(kOption) + "=json") return ErrorFormat::JSON;
    if (std::ranges::find(kWithValue, argument) == kWithValue.end()) continue;
    ++index;  // its value, whatever that looks like
    if (argument == kOption && index < arguments.size() && arguments[index] == "json") return ErrorFormat::JSON;
  }
  return ErrorFormat::Text;
}

}  // namespace tavlo
