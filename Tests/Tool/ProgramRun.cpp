#include "Tests/Tool/ProgramRun.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace tavlo {

namespace {

void redirect(const std::string& file, int flags, int number) {
  const int opened = ::open(file.c_str(), flags | O_CLOEXEC, 0666);
  if (opened < 0 || ::dup2(opened, number) < 0) ::_exit(126);
}

void leaveOutputWithoutReader() {
  int ends[2];
  if (::pipe(ends) != 0 || ::dup2(ends[1], STDOUT_FILENO) < 0) ::_exit(126);
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace

ProgramRun::ProgramRun(const WorkFolder& folder, const std::vector<std::string>& arguments, const Streams& streams) {
  streams_.write("input", streams.input);
  std::string program = TAVLO_PROGRAM;
  std::vector<std::string> texts = arguments;
  std::vector<char*> argv = {program.data()};
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);
  const std::string output = streams.outputFile == nullptr ? streams_.path("output") : streams.outputFile;
  const std::string errors = streams_.path("errors");
  const std::string input = streams_.path("input");
  const std::string home = folder.path(".");

  process_ = ::fork();
  if (process_ != 0) return;
  if (::chdir(home.c_str()) != 0) ::_exit(126);
  redirect(input, O_RDONLY, STDIN_FILENO);
  redirect(output, O_WRONLY | O_CREAT, STDOUT_FILENO);
  redirect(errors, O_WRONLY | O_CREAT, STDERR_FILENO);
  if (streams.errorsGoToOutput) ::dup2(STDOUT_FILENO, STDERR_FILENO);
  if (streams.readerIsGone) leaveOutputWithoutReader();
  if (streams.outputIsClosed) ::close(STDOUT_FILENO);
  ::signal(SIGPIPE, SIG_DFL);
  ::execv(program.c_str(), argv.data());
  ::_exit(127);
}

ProgramRun::~ProgramRun() {
  if (status_ < 0) ::kill(process_, SIGKILL);
  status();
}

int ProgramRun::status() {
  if (status_ < 0) {
    int state = 0;
    ::waitpid(process_, &state, 0);
    status_ = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
  }
  return status_;
}

std::string ProgramRun::output() {
  status();
  return streams_.read("output");
}

std::string ProgramRun::errors() {
  status();
  return streams_.read("errors");
}

}  // namespace tavlo
