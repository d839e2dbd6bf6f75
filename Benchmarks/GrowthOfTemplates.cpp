#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks/Growth.h"
#include "Source/KorTemplate.h"

namespace tavlo::benchmarks {

namespace {

struct TextRow {
  const char* name;
  std::size_t size;
  GrowingText text;
};

Work compiling(const std::string& text) {
  return [text] {
    const KorTemplateResult<Ref<KorTemplate>> result = KorTemplate::tryCompile(text);
    if (!result) throw std::runtime_error("does not compile: " + result.failure().reason());
  };
}

// With asking for the place.
Work refusing(const std::string& text) {
  return [text] {
    const KorTemplateResult<Ref<KorTemplate>> result = KorTemplate::tryCompile(text);
    if (result) throw std::runtime_error("compiles");
    (void)result.failure().text();
  };
}

std::vector<GrowingWork> worksOn(const std::vector<TextRow>& rows, Work (*work)(const std::string& text)) {
  std::vector<GrowingWork> works;
  for (const TextRow& row : rows) {
    works.push_back({row.name, row.size, [=](std::size_t size) { return work(row.text.of(size)); }});
  }
  return works;
}

Work copying(const std::string& text) {
  return [compiled = KorTemplate::compile(text)] { (void)compiled->copyWithZone(); };
}

Work describing(const std::string& text) {
  return [compiled = KorTemplate::compile(text)] { (void)compiled->statements()[0]->description(); };
}

std::vector<TextRow> texts() {
  return {
      {"compile: text", 100'000, {"", "x"}},
      {"compile: text of any language", 10'000, {"", "ä€𝄞 "}},
      {"compile: lines", 40'000, {"", "ab\n"}},
      {"compile: lines that carriage returns end", 40'000, {"", "ab\r"}},
      {"compile: opening angles", 40'000, {"", "< "}},
      {"compile: blocks", 1'000, {"", "<?= $x ?>"}},
      {"compile: blocks of one letter each", 1'000, {"", "<?= $x ?>", "", "", "y"}},
      {"compile: blocks between lines", 1'000, {"", "some text\n<?= $x ?>\n"}},
      {"compile: blocks in text of any language", 1'000, {"", "äé€𝄞<?= \"ä𝄞\" ?>"}},
      {"compile: lines of a block", 10'000, {"<?=", "\n", " 1 ?>"}},
      {"compile: white space of a block", 10'000, {"<?=", " ", " 1 ?>"}},
      {"compile: a long string", 40'000, {"<?= \"", "x", "\" ?>"}},
      {"compile: a string of escapes", 25'000, {"<?= \"", "\\\"", "\" ?>"}},
      {"compile: a string in any language", 10'000, {"<?= \"", "ä𝄞", "\" ?>"}},
      {"compile: a long word", 10'000, {"<?= f", "w", "() ?>"}},
      {"compile: a long variable", 10'000, {"<?= $f", "w", " ?>"}},
      {"compile: a key path", 5'000, {"<?= $a", ".b", " ?>"}},
      {"compile: digits", 10'000, {"<?= ", "9", " ?>"}},
      {"compile: digits behind a point", 10'000, {"<?= 0.", "9", " ?>"}},
      {"compile: a long pattern", 1'000, {"<? $a =~ /", "ab", "/ ?>"}},
  };
}

std::vector<TextRow> chains() {
  return {
      {"compile: a chain of sums", 1'500, {"<?= 1", " + 1", " ?>"}},
      {"compile: a chain of all operators", 500, {"<?= 1", " + 1 * 2 - $a / 3 % 2 == 3 && $b < 4 || $c", " ?>"}},
      {"compile: a chain of divisions", 1'500, {"<?= 1", " / 1", " ?>"}},
      {"compile: a chain of comparisons", 1'500, {"<?= 1", " == $a", " ?>"}},
      {"compile: a chain of assignments", 1'500, {"<? $a", " = $b", " ?>"}},
      {"compile: a chain of concatenations", 1'500, {"<?= \"\"", " + \"text\"", " ?>"}},
      {"compile: searches on a line", 500, {"<?= true", " && ($a =~ /b/)", " ?>"}},
      {"compile: pairs side by side", 1'000, {"<?= (1)", " + (1)", " ?>"}},
      {"compile: elseifs", 1'000, {"<? if ($a) ?>", "<? elseif ($b) ?>x", "<? endif ?>"}},
      {"compile: ifs side by side", 1'000, {"", "<? if ($a) ?>x<? else ?>y<? endif ?>"}},
      {"compile: loops side by side", 1'000, {"", "<? foreach ($i in $l) ?>x<? endforeach ?>"}},
      {"compile: functions", 1'000, {"", "<? function f#($a, $b) ?><? return $a ?><? endfunction ?>"}},
      {"compile: many names", 1'000, {"", "<?= $name# ?>"}},
      {"compile: arguments", 1'500, {"<?= f(1", ", 1", ") ?>"}},
      {"compile: parameters", 1'500, {"<? function f($a", ", $b#", ") ?><? endfunction ?>"}},
      {"compile: calls", 1'000, {"", "<? f(1, \"x\") ?>"}},
      {"compile: stray endings", 1'000, {"", "<? endif ?>"}},
  };
}

std::vector<TextRow> nestings() {
  return {
      {"compile: nested parentheses", 240, {"<?= ", "(", "1", ")", " ?>"}},
      {"compile: nested sums", 240, {"<?= ", "1 + (", "1", ")", " ?>"}},
      {"compile: nested sums to the left", 240, {"<?= ", "(", "1", " + 1)", " ?>"}},
      {"compile: nested calls", 240, {"<?= ", "f(1, ", "1", ")", " ?>"}},
      {"compile: nested ifs", 240, {"", "<? if ($a) ?>", "x", "<? endif ?>"}},
      {"compile: ifs nested in false branches", 240, {"", "<? if ($a) ?><? else ?>", "x", "<? endif ?>"}},
      {"compile: nested loops", 240, {"", "<? foreach ($i in $l) ?>", "x", "<? endforeach ?>"}},
      {"compile: nested functions", 240, {"", "<? function f() ?>", "x", "<? endfunction ?>"}},
  };
}

std::vector<TextRow> endlessThings() {
  return {
      {"refuse: slashes on a line", 2'500, {"<? ", "/", " 1 ?>"}},
      {"refuse: slashes with spaces", 2'500, {"<? ", "/ ", " 1 ?>"}},
      {"refuse: escaped slashes", 2'500, {"<? ", "/\\", " 1 ?>"}},
      {"refuse: slashes before white space", 200, {"<? ", "/                                1", " ?>"}},
      {"refuse: quotes on a line", 2'500, {"<? ", "\" ' "}},
      {"refuse: escaped quotes", 10'000, {"<? \"", "\\\""}},
      {"refuse: quotes that never close", 2'500, {"<? ", "\"\n'\n"}},
      {"refuse: a quote that never closes", 40'000, {"<? \"", "x"}},
      {"refuse: a quote that closes on another line", 10'000, {"<? \"", "x\n", "\" ?>"}},
      {"refuse: digits and a letter", 10'000, {"<?= ", "9", "x ?>"}},
      {"refuse: digits and a letter each", 2'500, {"<?= ", "9x ", "?>"}},
      {"refuse: digits and points", 2'500, {"<?= ", "1.", " ?>"}},
      {"refuse: signs", 2'500, {"<?= ", "-", "1 ?>"}},
      {"refuse: dollars", 2'500, {"<?= ", "$", " ?>"}},
      {"refuse: at signs", 2'500, {"<?= ", "@", "! ?>"}},
      {"refuse: unclosed blocks", 10'000, {"", "<?"}},
      {"refuse: a block that never closes", 25'000, {"<? ", "x "}},
      {"refuse: parentheses that never close", 10'000, {"<?= ", "(", " ?>"}},
      {"refuse: parentheses that never open", 10'000, {"<?= ", ")", " ?>"}},
  };
}

std::vector<TextRow> misplacedThings() {
  return {
      {"refuse: operands without operators", 1'500, {"<? ", "1 ", " ?>"}},
      {"refuse: operators without operands", 1'500, {"<? ", "+ ", " ?>"}},
      {"refuse: unknown characters", 1'500, {"<? ", "^\x01", " ?>"}},
      {"refuse: too many levels of parentheses", 10'000, {"<?= ", "(", "1", ")", " ?>"}},
      {"refuse: too many levels of ifs", 10'000, {"", "<? if (1) ?>", "x", "<? endif ?>"}},
      {"refuse: too many levels of calls", 10'000, {"<?= ", "f(1, ", "1", ")", " ?>"}},
      {"refuse: an if without an end", 10'000, {"<? if (1) ?>", "x\n"}},
      {"refuse: what stands behind many lines", 50'000, {"", "ab\n", "<?= 1 1 ?>"}},
      {"refuse: what stands behind a long line", 15'000, {"", "äb", "<?= 1 1 ?>"}},
      {"refuse: what stands before a long line", 15'000, {"<?= 1 1 ?>", "äb"}},
      {"refuse: what stands behind many blocks", 1'000, {"", "<?= $x ?>\n", "<?= 1 1 ?>"}},
      {"refuse: what is no UTF-8 behind a long text", 40'000, {"", "x\n", "\xff"}},
      {"refuse: a long pattern", 10'000, {"<? $a =~ /", "(", "/ ?>"}},
  };
}

void append(std::vector<GrowingWork>& works, std::vector<GrowingWork> more) {
  for (GrowingWork& work : more) works.push_back(std::move(work));
}

}  // namespace

std::vector<GrowingWork> growingCompilations() {
  std::vector<GrowingWork> works = worksOn(texts(), compiling);
  append(works, worksOn(chains(), compiling));
  append(works, worksOn(nestings(), compiling));
  append(works, worksOn({{"copy: blocks", 1'000, {"", "a<?= $x + 1 ?>"}},
                         {"copy: a chain of sums", 1'500, {"<?= 1", " + 1", " ?>"}},
                         {"copy: nested ifs", 240, {"", "<? if ($a) ?>", "x", "<? endif ?>"}}},
                        copying));
  append(works, worksOn({{"describe: a chain of sums", 1'500, {"<?= 1", " + 1", " ?>"}},
                         {"describe: elseifs", 1'000, {"<? if ($a) ?>", "<? elseif ($b) ?>x", "<? endif ?>"}},
                         {"describe: nested ifs", 240, {"", "<? if ($a) ?>", "x", "<? endif ?>"}},
                         {"describe: arguments", 1'000, {"<?= f(1", ", 1", ") ?>"}}},
                        describing));
  return works;
}

std::vector<GrowingWork> growingRefusals() {
  std::vector<GrowingWork> works = worksOn(endlessThings(), refusing);
  append(works, worksOn(misplacedThings(), refusing));
  return works;
}

}  // namespace tavlo::benchmarks
