#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::compare {

struct LetterItem {
  std::int64_t count = 0;
  std::string name;
};

struct Letter {
  std::int64_t number = 0;
  std::string date;
  std::string name;
  std::string street;
  std::string postcode;
  std::string city;
  std::int64_t total = 0;
  std::int64_t regular = 0;  // whether the customer is one: 1 or 0
  std::vector<LetterItem> items;
};

// Letters to made-up customers, the same at every call.
std::vector<Letter> makeLetters(std::size_t count);

// The data that the templates read.
std::string lettersAsJSON(const std::vector<Letter>& letters);

// The other way round. Raises std::runtime_error for any other text.
std::vector<Letter> lettersFromJSON(std::string text);

// What the templates make, 30 lines a letter.
std::string renderLetters(const std::vector<Letter>& letters);

// The page with four teams: its data and what the templates make.
struct Team {
  std::string name;
  std::int64_t score = 0;
};

struct League {
  std::string title;
  std::vector<Team> teams;
};

League makeLeague();
std::string leagueAsJSON(const League& league);
std::string renderLeague(const League& league);

}  // namespace tavlo::compare
