#include "Tests/Tool/ProgramRun.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

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

void limit(int resource, std::uint64_t most) {
  const rlimit limit{most, most};
  if (::setrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) ::_exit(126);
}

// What is left to do before the program runs, which must not see what this one does with signals, or was told to do as
// somebody's background job.
void prepare(const ProgramRun::Streams& streams, std::vector<std::string>& environment) {
  for (std::string& variable : environment) ::putenv(variable.data());
  constexpr int kLastSignal = 31;
  for (int signal = 1; signal <= kLastSignal; ++signal) ::signal(signal, SIG_DFL);
  limit(RLIMIT_CORE, 0);
  if (streams.largestFile > 0) limit(RLIMIT_FSIZE, streams.largestFile);
  if (streams.memory > 0) limit(RLIMIT_AS, streams.memory);
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
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
  std::vector<std::string> environment = streams.environment;

  process_ = ::fork();
  if (process_ != 0) return;
  if (::chdir(home.c_str()) != 0) ::_exit(126);
  redirect(input, O_RDONLY, STDIN_FILENO);
  redirect(output, O_WRONLY | O_CREAT, STDOUT_FILENO);
  redirect(errors, O_WRONLY | O_CREAT, STDERR_FILENO);
  if (streams.errorsGoToOutput) ::dup2(STDOUT_FILENO, STDERR_FILENO);
  if (streams.readerIsGone) leaveOutputWithoutReader();
  if (streams.outputIsClosed) ::close(STDOUT_FILENO);
  prepare(streams, environment);
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
    rusage used{};
    ::wait4(process_, &state, 0, &used);
    processorSeconds_ = secondsOf(used.ru_utime) + secondsOf(used.ru_stime);
    status_ = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
  }
  return status_;
}

double ProgramRun::processorSeconds() {
  status();
  return processorSeconds_;
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
