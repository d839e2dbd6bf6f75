#include "Tests/Examples/Catalogue.h"

#include <oniguruma.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace tavlo::test {

namespace {

constexpr std::string_view kMaterials[] = {"Oak", "Wool", "Cast-iron", "Linen", "Birch", "Copper", "Slate"};
constexpr std::string_view kThings[] = {"coat hook",    "blanket",       "trivet", "table runner", "shelf", "kettle",
                                        "serving tray", "candle holder", "stool",  "lamp shade",   "clock"};
constexpr std::string_view kSeries[] = {"OAK", "SALE", "IRON", "HOME", "LAST"};
constexpr std::string_view kMakers[] = {"Fjord Joinery", "Lerwick Mill", "Anvil Brothers"};
constexpr std::string_view kCities[] = {"Voss", "Lerwick", "Sheffield"};
constexpr std::string_view kMonths[] = {"March", "April", "May", "June"};

template <std::size_t count>
std::string pick(const std::string_view (&from)[count], std::size_t index) {
  return std::string(from[index % count]);
}

Product makeProduct(std::size_t index) {
  Product product;
  product.sku = pick(kSeries, index) + "-" + std::to_string(1001 + index);
  product.name = pick(kMaterials, index) + " " + pick(kThings, index) + " no. " + std::to_string(index + 1);
  product.maker = {pick(kMakers, index), pick(kCities, index)};
  product.amount = static_cast<std::int32_t>(9 + index * 37 % 480);
  product.pack = static_cast<std::int32_t>(1 + index % 6);
  product.pieces = static_cast<std::int32_t>(index % 9 == 0 ? 0 : index * 13 % 61);
  if (product.pieces == 0) product.expected = pick(kMonths, index);
  return product;
}

void append(std::string& out, std::string_view text) {
  out += text;
}

void append(std::string& out, std::int64_t number) {
  char digits[20];
  out.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
}

template <class... Pieces>
void appendAll(std::string& out, const Pieces&... pieces) {
  (append(out, pieces), ...);
}

// The made-up texts have nothing that must be escaped.
void appendProductAsJSON(std::string& out, const Product& product) {
  appendAll(out, R"({"sku": ")", product.sku, R"(", "name": ")", product.name, R"(", "maker": {"name": ")",
            product.maker.name, R"(", "city": ")", product.maker.city, R"("}, "price": {"amount": )", product.amount,
            R"(, "pack": )", product.pack, R"(}, "stock": {"pieces": )", product.pieces);
  if (!product.expected.empty()) appendAll(out, R"(, "expected": ")", product.expected, "\"");
  out += "}}";
}

// Whether a product has been reduced, as its number tells: by the regular expression library itself.
class ReducedPattern {
 public:
  ReducedPattern() {
    constexpr std::string_view kPattern = "^(SALE|LAST)-\\d+$";
    OnigEncoding encodings[] = {ONIG_ENCODING_UTF8};
    onig_initialize(encodings, 1);
    const int answer = onig_new(&compiled_, bytes(kPattern), bytes(kPattern) + kPattern.size(), ONIG_OPTION_NONE,
                                ONIG_ENCODING_UTF8, ONIG_SYNTAX_ONIGURUMA, nullptr);
    if (answer != ONIG_NORMAL) throw std::runtime_error("the pattern does not compile");
  }
  ~ReducedPattern() { onig_free(compiled_); }
  ReducedPattern(const ReducedPattern&) = delete;
  ReducedPattern& operator=(const ReducedPattern&) = delete;

  bool matches(std::string_view sku) const {
    const OnigUChar* const start = bytes(sku);
    return onig_match(compiled_, start, start + sku.size(), start, nullptr, ONIG_OPTION_NONE) >= 0;
  }

 private:
  static const OnigUChar* bytes(std::string_view text) { return reinterpret_cast<const OnigUChar*>(text.data()); }

  regex_t* compiled_ = nullptr;
};

void appendProduct(std::string& out, const Product& product, std::size_t number, const std::string& currency,
                   const ReducedPattern& reduced) {
  appendAll(out, "<article id=\"product-", static_cast<std::int64_t>(number), "\"");
  if (reduced.matches(product.sku)) out += " class=\"sale\"";
  appendAll(out, ">\n  <h2>", product.name, "</h2>\n  <p class=\"maker\">", product.maker.name, ", ",
            product.maker.city, "</p>\n  <p class=\"price\">Pack of ", product.pack, ": ",
            std::int64_t{product.amount} * product.pack, " ", currency, "</p>\n");
  if (product.pieces > 20) {
    out += "  <p class=\"stock\">In stock</p>\n";
  } else if (product.pieces > 0) {
    appendAll(out, "  <p class=\"stock\">Only ", product.pieces, " left</p>\n");
  } else {
    appendAll(out, "  <p class=\"stock\">Back in ", product.expected, "</p>\n");
  }
  out += "</article>\n";
}

}  // namespace

Catalogue makeCatalogue(std::size_t count) {
  Catalogue catalogue{"Hearth and Hook", "Bergen", "EUR", {}};
  for (std::size_t index = 0; index < count; ++index) catalogue.products.push_back(makeProduct(index));
  return catalogue;
}

std::string catalogueAsJSON(const Catalogue& catalogue) {
  std::string out;
  appendAll(out, R"({"shop": {"name": ")", catalogue.shop, R"(", "city": ")", catalogue.city, R"("}, "currency": ")",
            catalogue.currency, "\", \"products\": [");
  const char* separator = "\n";
  for (const Product& product : catalogue.products) {
    out += separator;
    appendProductAsJSON(out, product);
    separator = ",\n";
  }
  out += "\n]}\n";
  return out;
}

std::string renderCatalogue(const Catalogue& catalogue) {
  static const ReducedPattern kReduced;
  const auto [cheapest, dearest] =
      std::minmax_element(catalogue.products.begin(), catalogue.products.end(),
                          [](const Product& left, const Product& right) { return left.amount < right.amount; });
  std::string out;
  out.reserve(512 + catalogue.products.size() * 256);
  appendAll(out, "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n  <meta charset=\"utf-8\">\n  <title>", catalogue.shop,
            ", ", catalogue.city, "</title>\n</head>\n<body>\n<h1>", catalogue.shop, "</h1>\n<p>",
            static_cast<std::int64_t>(catalogue.products.size()), " products, from ", cheapest->amount, " ",
            catalogue.currency, " to ", dearest->amount, " ", catalogue.currency, "</p>\n");
  std::size_t number = 0;
  for (const Product& product : catalogue.products) {
    appendProduct(out, product, ++number, catalogue.currency, kReduced);
  }
  out += "</body>\n</html>\n";
  return out;
}

}  // namespace tavlo::test
