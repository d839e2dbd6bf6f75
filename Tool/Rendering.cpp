#include "Tool/Rendering.h"

#include <sys/resource.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <string>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateProfile.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/KorTemplateWriteException.h"
#include "Tool/Allocations.h"
#include "Tool/CountedStream.h"
#include "Tool/DiagnosticStream.h"
#include "Tool/Failure.h"
#include "Tool/FileDescriptor.h"
#include "Tool/GlobalDefinitions.h"
#include "Tool/InputFile.h"
#include "Tool/OutputFile.h"

namespace tavlo {

namespace {

// The same failure as the program tells of it.
Failure failureOf(const KorTemplateFailure& failure, const std::string& file) {
  Failure told;
  told.name = failure.name();
  told.reason = failure.reason();
  told.file = file;
  if (!failure.place().isKnown()) return told;
  told.place = failure.place().inText();
  told.excerpt = failure.place().excerpt();
  return told;
}

Ref<KorTemplate> compile(const std::string& text, const RenderOptions& options) {
  const KorTemplateCompileOptions named{options.templateFile, options.limits};
  KorTemplateFailure failure;
  try {
    return KorTemplate::compile(text, named, &failure);
  } catch (const std::exception& exception) {
    Failure told = failureOf(failure, options.templateFile);
    if (const auto* error = dynamic_cast<const KorTemplateSyntaxErrorException*>(&exception)) told.line = error->line();
    throw told;
  }
}

// What the execution has raised, the exception being in hand. One that could not begin knows of no failure.
[[noreturn]] void raiseFailureOf(const KorTemplateEnvironment& environment, const std::string& file) {
  const KorTemplateFailure* const failure = environment.lastFailure();
  if (failure == nullptr) throw;
  throw failureOf(*failure, file);
}

// Runs the template. What it has written is delivered, also where it fails.
void execute(const Ref<KorTemplate>& compiled, KorTemplateEnvironment& environment, const std::string& file,
             const OutputFile& output) {
  try {
    compiled->executeWithEnvironment(&environment);
  } catch (const KorTemplateWriteException& exception) {
    raiseUndelivered(exception.errorNumber(), output.name());
  } catch (const std::exception&) {
    raiseFailureOf(environment, file);
  }
}

// What was asked for about the run, whether or not that has failed.
class Account {
 public:
  Account(const RenderOptions& options, const Diagnostics& diagnostics) : options_(options), diagnostics_(diagnostics) {
    if (options.showsStatistics) Allocations::startCounting();
    if (options.profileFile.has_value()) profileFile_.emplace(options.profileFile);
  }

  // Begins with the output of the environment, which is complete but for it. Throws `Failure` where the file for the
  // profile is the one for the text.
  void watch(KorTemplateEnvironment& environment, const OutputFile& output) {
    if (profileFile_.has_value() && profileFile_->replacesSameFileAs(output)) {
      throw Failure::ofOutput(profileFile_->name(), "The profile and the text cannot be written to one file");
    }
    if (options_.showsStatistics) {
      output_ = makeRef<CountedStream>(environment.outputStream());
      environment.setOutputStream(output_);
    }
    if (!profileFile_.has_value()) return;
    profile_ = KorTemplateProfile::profile();
    environment.setProfile(profile_);
  }

  // The time since the last part of the run ended is that of the next one.
  void endPart(Statistics::Duration Statistics::*part) {
    const Clock::time_point now = Clock::now();
    statistics_.*part = now - since_;
    since_ = now;
  }

  // Tells what was asked for. Throws `Failure` when the profile cannot be written.
  void tell(const KorTemplateEnvironment& environment) {
    if (options_.showsStatistics) {
      rusage usage = {};
      ::getrusage(RUSAGE_SELF, &usage);
      statistics_.steps = environment.stepsTaken();
      statistics_.output = output_ == nullptr ? 0 : output_->bytes();
      statistics_.allocations = Allocations::count();
      statistics_.peakMemory = static_cast<std::uint64_t>(usage.ru_maxrss);
      diagnostics_.writeStatistics(statistics_);
    }
    if (profile_ == nullptr) return;
    const bool isWritten = writeAll(profileFile_->descriptor(), profile_->foldedStacks());
    // Where nobody reads it any more, that is no failure of what was rendered.
    if (!isWritten && errno != EPIPE) {
      throw Failure::ofOutput(profileFile_->name(), "The profile cannot be written: " + textOfSystemError(errno));
    }
    profileFile_->keep();
  }

  // The same where something has failed already, which is what the program ends with.
  void tellBehindFailure(const KorTemplateEnvironment& environment) {
    try {
      tell(environment);
    } catch (const Failure& failure) {
      diagnostics_.writeFailure(failure);
    } catch (const std::bad_alloc&) {
      diagnostics_.writeOutOfMemory();
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  const RenderOptions& options_;
  const Diagnostics& diagnostics_;
  Statistics statistics_;
  Clock::time_point since_ = Clock::now();
  Ref<CountedStream> output_;
  std::optional<OutputFile> profileFile_;
  Ref<KorTemplateProfile> profile_;
};

}  // namespace

void render(const RenderOptions& options, const Diagnostics& diagnostics) {
  Account account(options, diagnostics);
  const std::string text = readFile(options.templateFile);
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setLimits(options.limits);
  environment->setErrorStream(DiagnosticStream::diagnosticStream(diagnostics));
  defineGlobals(*environment, options);
  account.endPart(&Statistics::read);
  const Ref<KorTemplate> compiled = compile(text, options);
  account.endPart(&Statistics::compile);

  OutputFile output(options.outputFile);
  environment->setOutputStream(KorTemplateFileDescriptorStream::streamWithDescriptor(output.descriptor()));
  account.watch(*environment, output);
  try {
    execute(compiled, *environment, options.templateFile, output);
  } catch (...) {  // a failure, or nobody reads the text any more
    account.endPart(&Statistics::render);
    account.tellBehindFailure(*environment);
    throw;
  }
  account.endPart(&Statistics::render);
  account.tell(*environment);
  output.keep();  // last: a file is replaced only where nothing has failed
}

}  // namespace tavlo
