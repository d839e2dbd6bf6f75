#include "Tool/Program.h"

int main(int argc, char** argv) {
  return tavlo::runProgram({argv + (argc > 0 ? 1 : 0), argv + argc});
}
