#include "Benchmarks/peers/Letters.h"

#include <rapidjson/document.h>

#include <charconv>
#include <iterator>
#include <stdexcept>

namespace tavlo::compare {

namespace {

constexpr std::string_view kFirstNames[] = {"Ada", "Grace", "Edith", "Joan", "Mary", "Karen", "Radia", "Barbara"};
constexpr std::string_view kLastNames[] = {"Hill", "Clarke", "Hopper", "Winther", "Jackson", "Perlman", "Oakley"};
constexpr std::string_view kStreets[] = {"Harbour Road", "Mill Lane", "Church Street", "Station Road", "Quay Side"};
constexpr std::string_view kTowns[] = {"Whitby", "Lerwick", "Bergen", "Sheffield", "Voss", "Tobermory"};
constexpr std::string_view kGoods[] = {"coat hook", "wool blanket", "trivet", "table runner", "lamp shade", "kettle"};

template <std::size_t count>
std::string pick(const std::string_view (&from)[count], std::size_t index) {
  return std::string(from[index % count]);
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

Letter makeLetter(std::size_t index) {
  Letter letter;
  letter.number = static_cast<std::int64_t>(100'000 + index);
  letter.date = "2026-" + std::to_string(10 + index % 3) + "-" + std::to_string(10 + index % 18);
  letter.name = pick(kFirstNames, index) + " " + pick(kLastNames, index / 3);
  letter.street = std::to_string(1 + index % 97) + " " + pick(kStreets, index);
  letter.postcode = std::to_string(10'000 + index * 37 % 89'999);
  letter.city = pick(kTowns, index);
  letter.total = static_cast<std::int64_t>(9 + index * 17 % 980);
  letter.regular = index % 3 == 0 ? 1 : 0;
  for (std::size_t item = 0; item < 3; ++item) {
    letter.items.push_back({static_cast<std::int64_t>(1 + (index + item) % 12), pick(kGoods, index + item)});
  }
  return letter;
}

// The made-up texts have nothing that must be escaped.
void appendAsJSON(std::string& out, const Letter& letter) {
  appendAll(out, R"({"number": )", letter.number, R"(, "date": ")", letter.date, R"(", "name": ")", letter.name,
            R"(", "street": ")", letter.street, R"(", "postcode": ")", letter.postcode, R"(", "city": ")", letter.city,
            R"(", "total": )", letter.total, R"(, "regular": )", letter.regular, R"(, "items": [)");
  const char* separator = "";
  for (const LetterItem& item : letter.items) {
    appendAll(out, separator, R"({"count": )", item.count, R"(, "name": ")", item.name, "\"}");
    separator = ", ";
  }
  out += "]}";
}

void appendLetter(std::string& out, const Letter& letter) {
  appendAll(out, letter.name, "\n", letter.street, "\n", letter.postcode, " ", letter.city, "\n\nOrder ", letter.number,
            " of ", letter.date, "\n\nDear ", letter.name,
            ",\n\nthank you for your order. It left our house today:\n\n");
  for (const LetterItem& item : letter.items) appendAll(out, "  ", item.count, " x ", item.name, "\n");
  appendAll(out, "\nThe total is ", letter.total, " EUR.\n");
  out += letter.regular != 0 ? "As a regular customer you pay no postage.\n" : "Postage is included.\n";
  appendAll(out,
            "\nPlease keep this letter. If anything is missing or broken, write to\nus within 14 days, and name order ",
            letter.number, ".\n\nWe deliver to ", letter.city,
            " on every working day.\n\nYours sincerely,\n\nHearth and Hook\nBryggen 7\nBergen\n\n--\n");
}

std::string textOf(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value& value = object[name];
  return {value.GetString(), value.GetStringLength()};
}

Letter letterOf(const rapidjson::Value& object) {
  Letter letter;
  letter.number = object["number"].GetInt64();
  letter.date = textOf(object, "date");
  letter.name = textOf(object, "name");
  letter.street = textOf(object, "street");
  letter.postcode = textOf(object, "postcode");
  letter.city = textOf(object, "city");
  letter.total = object["total"].GetInt64();
  letter.regular = object["regular"].GetInt64();
  for (const rapidjson::Value& item : object["items"].GetArray()) {
    letter.items.push_back({item["count"].GetInt64(), textOf(item, "name")});
  }
  return letter;
}

}  // namespace

std::vector<Letter> makeLetters(std::size_t count) {
  std::vector<Letter> letters;
  letters.reserve(count);
  for (std::size_t index = 0; index < count; ++index) letters.push_back(makeLetter(index));
  return letters;
}

std::string lettersAsJSON(const std::vector<Letter>& letters) {
  std::string out = "{\"letters\": [";
  const char* separator = "\n";
  for (const Letter& letter : letters) {
    out += separator;
    appendAsJSON(out, letter);
    separator = ",\n";
  }
  return out + "\n]}\n";
}

std::vector<Letter> lettersFromJSON(std::string text) {
  rapidjson::Document document;
  document.ParseInsitu(text.data());
  if (document.HasParseError()) throw std::runtime_error("the letters do not parse");
  std::vector<Letter> letters;
  const auto& list = document["letters"].GetArray();
  letters.reserve(list.Size());
  for (const rapidjson::Value& object : list) letters.push_back(letterOf(object));
  return letters;
}

std::string renderLetters(const std::vector<Letter>& letters) {
  std::string out;
  out.reserve(letters.size() * 768);
  for (const Letter& letter : letters) appendLetter(out, letter);
  return out;
}

League makeLeague() {
  return {"Harbour League 2026", {{"Whitby", 43}, {"Lerwick", 27}, {"Bergen", 22}, {"Tobermory", 12}}};
}

std::string leagueAsJSON(const League& league) {
  std::string out;
  appendAll(out, R"({"title": ")", league.title, R"(", "teams": [)");
  const char* separator = "";
  for (const Team& team : league.teams) {
    appendAll(out, separator, R"({"name": ")", team.name, R"(", "score": )", team.score, "}");
    separator = ", ";
  }
  return out + "]}\n";
}

std::string renderLeague(const League& league) {
  std::string out;
  out.reserve(512);
  appendAll(out, "<html>\n<head><title>", league.title, "</title></head>\n<body>\n<h1>", league.title, "</h1>\n<ul>\n");
  bool isFirst = true;
  for (const Team& team : league.teams) {
    out += "<li";
    if (isFirst) out += " class=\"champion\"";
    isFirst = false;
    appendAll(out, "><b>", team.name, "</b>: ", team.score, "</li>\n");
  }
  out += "</ul>\n<p>Two points for a win, one for a draw.</p>\n</body>\n</html>\n";
  return out;
}

}  // namespace tavlo::compare
