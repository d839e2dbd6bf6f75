#include "Tool/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateWriteException.h"
#include "Tool/CommandLine.h"
#include "Tool/Diagnostics.h"
#include "Tool/Failure.h"
#include "Tool/InputFile.h"
#include "Tool/Rendering.h"

namespace tavlo {

namespace {

// Takes the numbers of standard streams that are closed, so that no file of ours gets one of them and is written to by
// mistake. What stands there then cannot be used either.
void occupyStandardStreams() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(number, F_GETFD) == -1) (void)::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

// While the arguments are parsed: the library for that copies some of them in functions that may not throw. Where there
// is no memory for a copy, the program ends as it does wherever memory runs out.
class ParsingOutOfMemory {
 public:
  explicit ParsingOutOfMemory(const Diagnostics& diagnostics) noexcept : ending_(std::set_terminate(end)) {
    diagnostics_ = &diagnostics;
  }
  ParsingOutOfMemory(const ParsingOutOfMemory&) = delete;
  ParsingOutOfMemory& operator=(const ParsingOutOfMemory&) = delete;
  ~ParsingOutOfMemory() { std::set_terminate(ending_); }

 private:
  [[noreturn]] static void end() noexcept {
    try {
      if (std::current_exception() != nullptr) std::rethrow_exception(std::current_exception());
    } catch (const std::bad_alloc&) {
      diagnostics_->writeOutOfMemory();
      ::_exit(static_cast<int>(ExitStatus::Unusable));
    } catch (...) {  // what nobody expects ends as it does elsewhere
    }
    std::abort();
  }

  static inline const Diagnostics* diagnostics_ = nullptr;
  std::terminate_handler ending_;
};

CommandLine parsed(const std::vector<std::string>& arguments, const Diagnostics& diagnostics) {
  const ParsingOutOfMemory watch(diagnostics);
  return CommandLine::parse(arguments);
}

void run(const std::vector<std::string>& arguments, const Diagnostics& diagnostics) {
  const CommandLine commandLine = parsed(arguments, diagnostics);
  if (!commandLine.information.has_value()) return render(commandLine.render, diagnostics);
  const Ref<KorTemplateStream> output = KorTemplateFileDescriptorStream::streamWithDescriptor(STDOUT_FILENO);
  try {
    output->write(*commandLine.information);
    output->flush();
  } catch (const KorTemplateWriteException& exception) {
    raiseUndelivered(exception.errorNumber(), kStandardStream);
  }
}

ExitStatus statusOf(const std::vector<std::string>& arguments, const Diagnostics& diagnostics) {
  try {
    run(arguments, diagnostics);
  } catch (const ReaderWentAway&) {
    // Whoever wanted the text has enough of it.
  } catch (const Failure& failure) {
    diagnostics.writeFailure(failure);
    return failure.status;
  } catch (const std::exception& exception) {
    diagnostics.writeFailure(Failure::ofInput("tavlo", exception.what()));
    return ExitStatus::Unusable;
  }
  return ExitStatus::Rendered;
}

}  // namespace

int runProgram(int count, char** arguments) noexcept {
  occupyStandardStreams();
  // Writing then fails instead, and the temporary file goes the normal way.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  Diagnostics diagnostics(ErrorFormat::Text);
  try {
    const std::vector<std::string> texts(arguments + (count > 0 ? 1 : 0), arguments + count);
    diagnostics = Diagnostics(CommandLine::errorFormatOf(texts));
    return static_cast<int>(statusOf(texts, diagnostics));
  } catch (const std::bad_alloc&) {
    diagnostics.writeOutOfMemory();
    return static_cast<int>(ExitStatus::Unusable);
  }
}

}  // namespace tavlo
