#include "Benchmarks/peers/Driver.h"

#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace tavlo::compare {

namespace {

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::string measure(const Workload& workload, std::uint64_t count) {
  if (count == 0) throw std::runtime_error("how often?");
  const auto start = std::chrono::steady_clock::now();
  const double processorStart = processorSeconds();
  for (std::uint64_t done = 0; done < count; ++done) workload.run();
  const double processor = processorSeconds() - processorStart;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  char answer[64];
  const double times = static_cast<double>(count);
  (void)std::snprintf(answer, sizeof answer, "%.9g %.9g", wall.count() / times, processor / times);
  return answer;
}

class Server {
 public:
  explicit Server(const Prepare& prepare) : prepare_(prepare) {}

  std::string answer(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    std::string name;
    words >> command >> name;
    if (name != name_) {
      workload_ = {};
      name_.clear();
      workload_ = prepare_(name);
      name_ = name;
    }
    if (command == "run") {
      std::uint64_t count = 0;
      words >> count;
      return measure(workload_, count);
    }
    if (command == "output" && workload_.output) {
      std::string path;
      words >> std::ws;
      std::getline(words, path);
      writeFile(path, workload_.output());
      return "done";
    }
    if (command == "memory" && workload_.memory) return std::to_string(workload_.memory());
    throw std::runtime_error("no such command: " + line);
  }

 private:
  const Prepare& prepare_;
  std::string name_;
  Workload workload_;
};

}  // namespace

int serve(const Prepare& prepare) {
  Server server(prepare);
  for (std::string line; std::getline(std::cin, line);) {
    try {
      std::cout << server.answer(line) << std::endl;
    } catch (const std::exception& error) {
      std::cout << "error " << error.what() << std::endl;
    }
  }
  return 0;
}

std::uint64_t allocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) throw std::runtime_error("cannot read " + path);
  return std::move(text).str();
}

void writeFile(const std::string& path, std::string_view text) {
  std::ofstream out(path, std::ios::binary);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.flush();
  if (!out) throw std::runtime_error("cannot write " + path);
}

}  // namespace tavlo::compare
