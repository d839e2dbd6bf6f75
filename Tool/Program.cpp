#include "Tool/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>

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

void run(const std::vector<std::string>& arguments, const Diagnostics& diagnostics) {
  const CommandLine commandLine = CommandLine::parse(arguments);
  if (!commandLine.information.has_value()) return render(commandLine.render, diagnostics);
  const Ref<KorTemplateStream> output = KorTemplateFileDescriptorStream::streamWithDescriptor(STDOUT_FILENO);
  try {
    output->write(*commandLine.information);
    output->flush();
  } catch (const KorTemplateWriteException& exception) {
    raiseUndelivered(exception.errorNumber(), kStandardStream);
  }
}

}  // namespace

int runProgram(const std::vector<std::string>& arguments) {
  occupyStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);  // writing then fails instead, and the temporary file goes the normal way
  const Diagnostics diagnostics(CommandLine::errorFormatOf(arguments));
  ExitStatus status = ExitStatus::Rendered;
  try {
    run(arguments, diagnostics);
  } catch (const ReaderWentAway&) {
    // Whoever wanted the text has enough of it.
  } catch (const Failure& failure) {
    diagnostics.writeFailure(failure);
    status = failure.status;
  } catch (const std::exception& exception) {
    diagnostics.writeFailure(Failure::ofInput("tavlo", exception.what()));
    status = ExitStatus::Unusable;
  }
  return static_cast<int>(status);
}

}  // namespace tavlo
