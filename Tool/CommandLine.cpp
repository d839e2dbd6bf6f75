#include "Tool/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

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
  const bool isAnyEmpty = options.templateFile.empty() || options.outputFile == "" || options.profileFile == "" ||
                          std::count(options.dataFiles.begin(), options.dataFiles.end(), "") > 0;
  if (isAnyEmpty) raiseUsage("The name of a file is empty");
}

// Standard input can be read once.
void requireOneReaderOfStandardInput(const RenderOptions& options) {
  auto readers = std::count(options.dataFiles.begin(), options.dataFiles.end(), kStandardStream);
  if (options.templateFile == kStandardStream) ++readers;
  if (readers > 1) raiseUsage("Only one of the template and the data files can be '-', standard input");
}

constexpr double kMostSeconds = 1e9;

// What is wrong with the text of a number of seconds, beside being none: "nan" lies in every range.
std::string refusalOfSeconds(const std::string& text) {
  return std::isnan(std::strtod(text.c_str(), nullptr)) ? "Value " + text + " is no number" : "";
}

std::chrono::milliseconds millisecondsOf(double seconds) {
  return std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(seconds * 1000)));
}

// What is wrong with the text of a whole number; empty for nothing. The library reads "-1" as a very large one, and one
// that is too large for 64 bits as the largest.
std::string refusalOfNumber(const std::string& text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (rest != end || error == std::errc::invalid_argument) return "Value " + text + " is no whole number";
  return error == std::errc() ? "" : "Value " + text + " is too large";
}

// The type of a limit's value, which may be absent.
template <class Limit>
struct ValueOfLimit {
  using Type = Limit;
};
template <class Value>
struct ValueOfLimit<std::optional<Value>> {
  using Type = Value;
};
template <class Limit>
using ValueOf = typename ValueOfLimit<Limit>::Type;

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
    shortenBundles(arguments);
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
  // The library takes the flags of "-hhh…" one by one and copies those that are left each time. More of the only flag
  // with one letter say nothing more.
  static void shortenBundles(std::vector<std::string>& arguments) {
    constexpr std::size_t kManyFlags = 64;
    for (std::string& argument : arguments) {
      if (argument == "--") break;
      if (argument.starts_with("-h") && argument.size() > kManyFlags) argument.resize(kManyFlags);
    }
  }

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
    render_->add_flag("--no-library")->description("Register no functions");  // none come with the program yet
    render_->add_option("--error-format", errorFormat_, "How errors are written: text (the default) or json")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}));
    describeLimits();
    render_->add_flag_callback(
        "--stats", [this] { options_.showsStatistics = true; }, "Tell on standard error what the run took");
    render_
        ->add_option("--profile", options_.profileFile,
                     "Write where the time went, a line for each stack of template lines, for flame graphs")
        ->type_name("FILE");
  }

  void describeLimits() {
    addLimit("--max-steps", "N", "The most steps that the template may take: statements, iterations, calls and such",
             options_.limits.steps);
    addLimit("--max-output", "BYTES", "The most bytes that the template may write", options_.limits.output);
    addLimit("--max-nesting", "N", "How deep blocks and parentheses may be nested; 1000 unless given",
             options_.limits.nesting);
    addLimit("--max-function-depth", "N", "How deep functions may call one another; 1000 unless given",
             options_.limits.functionDepth);
    addLimit("--max-string", "BYTES", "The longest string that the template may make; 256 MiB unless given",
             options_.limits.stringLength);
    render_
        ->add_option_function<double>(
            "--max-seconds", [this](double seconds) { options_.limits.time = millisecondsOf(seconds); },
            "How long the template may run")
        ->type_name("S")
        ->check(refusalOfSeconds)
        ->check(CLI::Range(0.0, kMostSeconds).description(""));
  }

  template <class Limit>
  void addLimit(const char* name, const char* typeName, const char* description, Limit& limit) {
    render_
        ->add_option_function<std::uint64_t>(
            name, [&limit](std::uint64_t value) { limit = static_cast<ValueOf<Limit>>(value); }, description)
        ->type_name(typeName)
        ->check(refusalOfNumber)
        ->check(
            CLI::Range(std::uint64_t{0}, std::uint64_t{std::numeric_limits<ValueOf<Limit>>::max()}).description(""));
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
  constexpr std::array<std::string_view, 14> kWithValue = {
      kOption,        "-d",           "--data",      "-D",           "--define",      "-o",
      "--output",     "--profile",    "--max-steps", "--max-output", "--max-nesting", "--max-function-depth",
      "--max-string", "--max-seconds"};
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string& argument = arguments[index];
    if (argument == "--") break;
    if (argument == "--error-format=json") return ErrorFormat::JSON;
    if (std::ranges::find(kWithValue, argument) == kWithValue.end()) continue;
    ++index;  // its value, whatever that looks like
    if (argument == kOption && index < arguments.size() && arguments[index] == "json") return ErrorFormat::JSON;
  }
  return ErrorFormat::Text;
}

}  // namespace tavlo
