#pragma once

#include <sys/types.h>

#include <cstdint>
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
    bool errorsGoToOutput = false;              // standard error is the file of standard output
    std::vector<std::string> environment = {};  // "NAME=VALUE", beside that of this program
    // The most bytes, of memory and of any file, that the program may have; 0 for as many as this one.
    std::uint64_t memory = 0;
    std::uint64_t largestFile = 0;
  };

  ProgramRun(const WorkFolder& folder, const std::vector<std::string>& arguments) : ProgramRun(folder, arguments, {}) {}
  ProgramRun(const WorkFolder& folder, const std::vector<std::string>& arguments, const Streams& streams);
  ~ProgramRun();
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;

  pid_t process() const { return process_; }
  // Wait for the end. The status is that of exit, or 128 more than the number of the signal that ended the program.
  int status();
  double processorSeconds();
  std::string output();
  std::string errors();

 private:
  WorkFolder streams_;  // holds the files for the standard streams
  pid_t process_ = -1;
  int status_ = -1;
  double processorSeconds_ = 0;
};

}  // namespace tavlo
