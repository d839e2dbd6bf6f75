#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavlo::test {

struct Maker {
  std::string name;
  std::string city;
};

struct Product {
  std::string sku;
  std::string name;
  Maker maker;
  std::int32_t amount = 0;  // the price of one
  std::int32_t pack = 1;
  std::int32_t pieces = 0;
  std::string expected;  // the month when it is back; only of a product that is sold out
};

// What the catalogue example renders.
struct Catalogue {
  std::string shop;
  std::string city;
  std::string currency;
  std::vector<Product> products;
};

// A catalogue of that many made-up products, the same at every call.
Catalogue makeCatalogue(std::size_t count);

// The data that the example's template reads.
std::string catalogueAsJSON(const Catalogue& catalogue);

// The page that the example's template makes, written without it.
std::string renderCatalogue(const Catalogue& catalogue);

}  // namespace tavlo::test
