#include <cstdlib>
#include <iostream>

#include "Tests/Examples/Catalogue.h"

// Writes the data of the catalogue example for the number of products that is given.
int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: catalogue_data COUNT\n";
    return 2;
  }
  std::cout << tavlo::test::catalogueAsJSON(tavlo::test::makeCatalogue(std::strtoul(argv[1], nullptr, 10)));
}
