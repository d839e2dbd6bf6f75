#include "Benchmarks/TemplateText.h"

#include <cstdint>
#include <iterator>
#include <string_view>

namespace tavlo::benchmarks {

namespace {

constexpr std::size_t kKilobyte = 1024;

// The blocks of one kilobyte, in order; "#" stands for its number.
constexpr std::string_view kBlocks[] = {
    "<? if ($user#.kind == \"company\") ?>",
    "<?= $user#.name + \", \" + $user#.city ?>",
    "<? elseif ($user#.age < 18) ?>",
    "<?= $user#.school ?>",
    "<? endif ?>",
    "<? foreach ($item in $orders#) ?>",
    "<?= @@index + 1 ?>",
    "<?= price($item.cents, \"EUR\") ?>",
    "<? if ($item.count > 1) ?>",
    "<?= $item.count * $item.weight ?>",
    "<? endif ?>",
    "<? endforeach ?>",
    "<? $n# = ($total + 5) ?>",
    "<?= $n# ?>",
};

constexpr std::string_view kWords[] = {"your",    "order", "has",       "left",          "the",    "house", "today",
                                       "and",     "<p>",   "</p>\n",    "<b>parcel</b>", "will",   "be",    "with",
                                       "you",     "in",    "two",       "days:",         "Please", "keep",  "this",
                                       "letter,", "dear",  "customer.", "\n<li>"};

// Words that look picked at random, and are the same at every run.
class Words {
 public:
  std::string_view next() {
    state_ = state_ * 6'364'136'223'846'793'005 + 1'442'695'040'888'963'407;
    return kWords[(state_ >> 33) % std::size(kWords)];
  }

  // That many bytes of text.
  std::string text(std::size_t size) {
    std::string out;
    while (out.size() < size) {
      out += next();
      out += ' ';
    }
    out.resize(size);
    return out;
  }

 private:
  std::uint64_t state_ = 1;
};

std::string blockOf(std::string_view pattern, const std::string& number) {
  std::string block(pattern);
  for (std::size_t at = block.find('#'); at != std::string::npos; at = block.find('#', at)) {
    block.replace(at, 1, number);
  }
  return block;
}

void appendKilobyte(std::string& out, const std::string& number, Words& words) {
  const std::size_t end = out.size() + kKilobyte;
  std::size_t left = kKilobyte;  // for literal text
  for (const std::string_view pattern : kBlocks) left -= blockOf(pattern, number).size();
  const std::size_t share = left / (std::size(kBlocks) + 1);
  for (const std::string_view pattern : kBlocks) {
    out += words.text(share);
    out += blockOf(pattern, number);
  }
  out += words.text(end - out.size());
}

}  // namespace

std::string makeTemplateText(std::size_t kilobytes) {
  std::string out;
  out.reserve(kilobytes * kKilobyte);
  Words words;
  for (std::size_t number = 0; number < kilobytes; ++number) appendKilobyte(out, std::to_string(number), words);
  return out;
}

}  // namespace tavlo::benchmarks
