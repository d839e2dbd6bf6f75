#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Tests/Tool/WorkFolder.h"

namespace tavlo {

// The program, running in a folder with the arguments given.
class ProgramRun {
 public:
  struct Streams {
    std::string input = {};            // what standard input holds
    const char* outputFile = nullptr;  // where standard output goes instead of into output()
    bool readerIsGone = false;         // standard output is a pipe that nobody reads
    bool outputIsClosed = false;
    bool errorsGoToOutput = false;  // standard error is the file of standard output
  };

  ProgramRun(const WorkFolder& folder, const std::vector<std::string>& arguments) : ProgramRun(folder, arguments, {}) {}
  ProgramRun(const WorkFolder& folder, const std::vector<std::string>& arguments, const Streams& streams);
  ~ProgramRun();
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;

  pid_t process() const { return process_; }
  // Wait for the end. The status is that of exit, or 128 more than the number of the signal that ended the program.
  int status();
  std::string output();
  std::string errors();

 private:
  WorkFolder streams_;  // holds the files for the standard streams
  pid_t process_ = -1;
  int status_ = -1;
};

}  // namespace tavlo
