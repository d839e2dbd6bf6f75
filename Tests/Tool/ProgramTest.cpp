#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "Tests/Tool/ProgramRun.h"
#include "Tests/Tool/WorkFolder.h"

namespace tavlo {

namespace {

// The files that every row may name.
void writeFiles(const WorkFolder& folder) {
  folder.write("hello", "Hello <?= $name ?>!\n");
  folder.write("list", "<? foreach ($each in $items) ?><?= $each ?>;<? endforeach ?>");
  folder.write("broken", "one\n\t日本 <? if (1 ?>\n");
  folder.write("failing", "before\n\t日本 <?= 1 % 0 ?> after\n");
  folder.write("diagnostic", "<? function f($a) ?><?= 1 % 0 ?><? endfunction ?>a<?= f(1) ?>b<?= f() ?>c");
  folder.write("bytes", "ab\n日\xFF");
  folder.write("data.json", R"({"name":"data","items":[1,"two",null,true]})");
  folder.write("more.json", R"({"name":"more"})");
  folder.write("bad.json", "{\"a\":\n \"日本\\x\"}");
  folder.write("list.json", "[1]");
  folder.write("deep.json", "{\"a\":" + std::string(1000, '[') + std::string(1000, ']') + "}");
}

struct Row {
  const char* what;
  std::vector<std::string> arguments;
  int status;
  std::string output;
  std::string errors;
  std::string input = {};
};

void expectRow(const Row& row) {
  const WorkFolder folder;
  writeFiles(folder);
  const std::vector<std::string> before = folder.names();
  ProgramRun run(folder, row.arguments, {.input = row.input});
  EXPECT_EQ(run.status(), row.status) << row.what;
  EXPECT_EQ(run.output(), row.output) << row.what;
  EXPECT_EQ(run.errors(), row.errors) << row.what;
  EXPECT_EQ(folder.names(), before) << row.what;
}

TEST(Program, RendersWithTheGlobalsItIsGiven) {
  const Row rows[] = {
      {"nothing", {"render", "hello"}, 0, "Hello !\n", ""},
      {"a template on standard input", {"render", "-"}, 0, "5", "", "<?= 2 + 3 ?>"},
      {"-D", {"render", "hello", "-D", "name=you"}, 0, "Hello you!\n", ""},
      {"--define", {"render", "hello", "--define", "name=you"}, 0, "Hello you!\n", ""},
      {"--define=", {"render", "hello", "--define=name=you"}, 0, "Hello you!\n", ""},
      {"options before the template", {"render", "-D", "name=you", "hello"}, 0, "Hello you!\n", ""},
      {"a name ends at the first sign", {"render", "hello", "-D", "name=a=b:=c"}, 0, "Hello a=b:=c!\n", ""},
      {"an empty text", {"render", "hello", "-D", "name="}, 0, "Hello !\n", ""},
      {"brackets are text", {"render", "hello", "-D", "name=[a,b]"}, 0, "Hello [a,b]!\n", ""},
      {"digits are text", {"render", "hello", "-D", "name=007"}, 0, "Hello 007!\n", ""},
      {"a JSON number", {"render", "hello", "-D", "name:=1.50"}, 0, "Hello 1.5!\n", ""},
      {"a JSON string", {"render", "hello", "-D", "name:=\"a\\tb\""}, 0, "Hello a\tb!\n", ""},
      {"JSON null", {"render", "hello", "-D", "name:=null"}, 0, "Hello !\n", ""},
      {"a JSON list", {"render", "list", "-D", "items:=[1,true,\"x\"]"}, 0, "1;1;x;", ""},
      {"an empty JSON object", {"render", "hello", "-D", "name:={}"}, 0, "Hello {\n}!\n", ""},
      {"the last definition stands",
       {"render", "hello", "-D", "name=a", "-D", "name:=2", "-D", "name=c"},
       0,
       "Hello c!\n",
       ""},
      {"-d", {"render", "hello", "-d", "data.json"}, 0, "Hello data!\n", ""},
      {"--data", {"render", "list", "--data", "data.json"}, 0, "1;two;;1;", ""},
      {"a later file wins", {"render", "hello", "-d", "data.json", "-d", "more.json"}, 0, "Hello more!\n", ""},
      {"an earlier file stays", {"render", "list", "-d", "data.json", "-d", "more.json"}, 0, "1;two;;1;", ""},
      {"-D wins over --data", {"render", "hello", "-D", "name=mine", "-d", "data.json"}, 0, "Hello mine!\n", ""},
      {"data on standard input", {"render", "hello", "-d", "-"}, 0, "Hello input!\n", "", R"({"name":"input"})"},
      {"--no-library", {"render", "hello", "--no-library", "-D", "name=you"}, 0, "Hello you!\n", ""},
      {"--error-format text", {"render", "hello", "--error-format", "text"}, 0, "Hello !\n", ""},
      {"-o to standard output", {"render", "hello", "-o", "-"}, 0, "Hello !\n", ""},
  };
  for (const Row& row : rows) expectRow(row);
}

const std::string kLook = "; 'tavlo help render' shows the usage\n";

TEST(Program, RefusesWrongUsage) {
  const Row rows[] = {
      {"no command", {}, 2, "", "tavlo: usage: A command is expected; 'tavlo --help' lists the commands\n"},
      {"an unknown command", {"draw"}, 2, "", "tavlo: usage: The following argument was not expected: draw" + kLook},
      {"no template", {"render"}, 2, "", "tavlo: usage: TEMPLATE is required" + kLook},
      {"two templates",
       {"render", "hello", "list"},
       2,
       "",
       "tavlo: usage: The following argument was not expected: list" + kLook},
      {"many templates, in their order",
       {"render", "hello", "x", "y", "z"},
       2,
       "",
       "tavlo: usage: The following arguments were not expected: x y z" + kLook},
      {"an unknown option with a value",
       {"render", "hello", "--fast", "3"},
       2,
       "",
       "tavlo: usage: The following arguments were not expected: --fast 3" + kLook},
      {"unknown commands, in their order",
       {"draw", "a", "b"},
       2,
       "",
       "tavlo: usage: The following arguments were not expected: draw a b" + kLook},
      {"a form of errors that is another option's value",
       {"render", "-D", "--error-format=json", "hello", "-Z"},
       2,
       "",
       "tavlo: usage: The following argument was not expected: -Z" + kLook},
      {"an unknown option",
       {"render", "--fast", "hello"},
       2,
       "",
       "tavlo: usage: The following argument was not expected: --fast" + kLook},
      {"an option without its value",
       {"render", "hello", "-o"},
       2,
       "",
       "tavlo: usage: --output: 1 required FILE missing" + kLook},
      {"two outputs",
       {"render", "hello", "-o", "a", "-o", "b"},
       2,
       "",
       "tavlo: usage: --output: At Most 1 required but received 2" + kLook},
      {"an unknown form of errors",
       {"render", "hello", "--error-format", "xml"},
       2,
       "",
       "tavlo: usage: --error-format: xml not in {text,json}" + kLook},
      {"a definition without a sign",
       {"render", "hello", "-D", "name"},
       2,
       "",
       "tavlo: usage: -D name: NAME=TEXT or NAME:=JSON is expected" + kLook},
      {"a definition without a name",
       {"render", "hello", "-D", "=x"},
       2,
       "",
       "tavlo: usage: -D =x: a name is expected before the sign" + kLook},
      {"a JSON definition without a name",
       {"render", "hello", "-D", ":=1"},
       2,
       "",
       "tavlo: usage: -D :=1: a name is expected before the sign" + kLook},
      {"a definition that is no JSON",
       {"render", "hello", "-D", "name:=[1,é"},
       2,
       "",
       "-D name:1:4: usage: Invalid value\n[1,é\n   ^\n"},
      {"a definition that is not UTF-8",
       {"render", "hello", "-D", "name=a\xFF"},
       2,
       "",
       "tavlo: usage: The text of -D name is not valid UTF-8 at byte offset 1\n"},
      {"an empty file name", {"render", "hello", "-o", ""}, 2, "", "tavlo: usage: The name of a file is empty" + kLook},
      {"template and data on standard input",
       {"render", "-", "-d", "-"},
       2,
       "",
       "tavlo: usage: Only one of the template and the data files can be '-', standard input" + kLook},
      {"twice data on standard input",
       {"render", "hello", "-d", "-", "-d", "-"},
       2,
       "",
       "tavlo: usage: Only one of the template and the data files can be '-', standard input" + kLook},
      {"help for an unknown command",
       {"help", "draw"},
       2,
       "",
       "tavlo: usage: There is no command 'draw'; 'tavlo --help' lists the commands\n"},
  };
  for (const Row& row : rows) expectRow(row);
}

TEST(Program, NamesWhatItCannotRead) {
  const Row rows[] = {
      {"no template",
       {"render", "absent"},
       2,
       "",
       "absent: input: The file cannot be read: No such file or directory\n"},
      {"a template that is a folder", {"render", "."}, 2, "", ".: input: The file cannot be read: Is a directory\n"},
      {"a template below a file",
       {"render", "hello/x"},
       2,
       "",
       "hello/x: input: The file cannot be read: Not a directory\n"},
      {"no data",
       {"render", "hello", "-d", "absent.json"},
       2,
       "",
       "absent.json: input: The file cannot be read: No such file or directory\n"},
      {"data that is a folder",
       {"render", "hello", "-d", "."},
       2,
       "",
       ".: input: The file cannot be read: Is a directory\n"},
      {"data that is no JSON",
       {"render", "hello", "-d", "bad.json"},
       2,
       "",
       "bad.json:2:5: input: Invalid escape character in string\n \"日本\\x\"}\n      ^\n"},
      {"data that is no object",
       {"render", "hello", "-d", "list.json"},
       2,
       "",
       "list.json:1:1: input: The top level is not an object\n[1]\n^\n"},
      {"data on standard input that is empty",
       {"render", "hello", "-d", "-"},
       2,
       "",
       "-:1:1: input: There is no value\n\n^\n"},
      {"data is read before the template is compiled",
       {"render", "broken", "-d", "absent.json"},
       2,
       "",
       "absent.json: input: The file cannot be read: No such file or directory\n"},
  };
  for (const Row& row : rows) expectRow(row);
}

TEST(Program, CutsALongLineAroundTheCaret) {
  const WorkFolder folder;
  writeFiles(folder);
  ProgramRun run(folder, {"render", "hello", "-d", "deep.json"});
  EXPECT_EQ(run.status(), 2);
  EXPECT_EQ(run.errors(), "deep.json:1:1005: input: Arrays and objects are nested deeper than 1000\n..." +
                              std::string(400, '[') + std::string(1, '[') + std::string(399, ']') + "...\n" +
                              std::string(403, ' ') + "^\n");
}

TEST(Program, ShowsWhereATemplateFails) {
  const Row rows[] = {
      {"a syntax error",
       {"render", "broken"},
       1,
       "",
       "broken:2:12: KorTemplateSyntaxErrorException: Syntax error (line 2): if statement: ')' missing\n"
       "\t日本 <? if (1 ?>\n\t            ^\n"},
      {"a failure while running",
       {"render", "failing"},
       1,
       "before\n\t日本 ",
       "failing:2:5: NSGenericException: Divide by zero\n\t日本 <?= 1 % 0 ?> after\n\t     ^\n"},
      {"a template on standard input",
       {"render", "-"},
       1,
       "",
       "-:1:1: NSGenericException: Divide by zero\n<? 1 % 0 ?>\n^\n",
       "<? 1 % 0 ?>"},
      {"text that is not UTF-8",
       {"render", "bytes"},
       1,
       "",
       "bytes:2:2: NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 6\n日\uFFFD\n  ^\n"},
      {"a control character in the line",
       {"render", "-"},
       1,
       "\x1B[1m\tx",
       "-:1:7: NSGenericException: Divide by zero\n\uFFFD[1m\tx<? 1 % 0 ?>\n    \t ^\n",
       "\x1B[1m\tx<? 1 % 0 ?>"},
      {"diagnostics, and no failure",
       {"render", "diagnostic"},
       0,
       "abc",
       "Divide by zero\nIncorrect number of arguments for function. 0 supplied, 1 expected\n"},
  };
  for (const Row& row : rows) expectRow(row);
}

TEST(Program, ShowsNoControlCharactersAndKeepsAFailureOnOneLine) {
  const Row rows[] = {
      {"a file's name",
       {"render", "\x1B[1m\n\x7F\xFF"},
       2,
       "",
       "\uFFFD[1m\uFFFD\uFFFD\uFFFD: input: The file cannot be read: No such file or directory\n"},
      {"an argument",
       {"render", "hello", "-\x1B[1m"},
       2,
       "",
       "tavlo: usage: The following argument was not expected: -\uFFFD[1m" + kLook},
      {"a reason",
       {"render", "-", "-D", "text=a\x1B\n\t\u009B日本b"},
       1,
       "",
       "-:1:1: NSGenericException: a\uFFFD\uFFFD\t\uFFFD日本b does not implement isLessThan:\n<? $text < 1 ?>\n^\n",
       "<? $text < 1 ?>"},
      {"a diagnostic, which may have many lines",
       {"render", "-", "-D", "text=a\x1B\nb"},
       0,
       "",
       "a\uFFFD\nb does not implement isLessThan:\n",
       "<? function f($a) ?><? $a < 1 ?><? endfunction ?><? f($text) ?>"},
      {"errors as JSON",
       {"render", "\x1B\n", "--error-format=json"},
       2,
       "",
       R"({"kind":"error","name":"input","reason":"The file cannot be read: No such file or directory",)"
       R"("file":"\u001B\n"})"
       "\n"},
  };
  for (const Row& row : rows) expectRow(row);
}

TEST(Program, WritesErrorsAsJSONWhenAskedTo) {
  const Row rows[] = {
      {"a syntax error",
       {"render", "broken", "--error-format", "json"},
       1,
       "",
       R"({"kind":"error","name":"KorTemplateSyntaxErrorException",)"
       R"("reason":"Syntax error (line 2): if statement: ')' missing","file":"broken","line":2,)"
       R"("at":{"line":2,"column":12,"offset":19,"length":1}})"
       "\n"},
      {"a failure while running",
       {"render", "failing", "--error-format=json"},
       1,
       "before\n\t日本 ",
       R"({"kind":"error","name":"NSGenericException","reason":"Divide by zero","file":"failing",)"
       R"("at":{"line":2,"column":5,"offset":15,"length":12}})"
       "\n"},
      {"diagnostics",
       {"render", "diagnostic", "--error-format", "json"},
       0,
       "abc",
       R"({"kind":"diagnostic","text":"Divide by zero"})"
       "\n"
       R"({"kind":"diagnostic","text":"Incorrect number of arguments for function. 0 supplied, 1 expected"})"
       "\n"},
      {"a file's name that is not UTF-8, with a quote",
       {"render", "\"\n\xFF", "--error-format", "json"},
       2,
       "",
       R"({"kind":"error","name":"input","reason":"The file cannot be read: No such file or directory",)"
       "\"file\":\"\\\"\\n\uFFFD\"}\n"},
      {"data",
       {"render", "hello", "-d", "bad.json", "--error-format", "json"},
       2,
       "",
       R"({"kind":"error","name":"input","reason":"Invalid escape character in string","file":"bad.json",)"
       R"("at":{"line":2,"column":5,"offset":14,"length":1}})"
       "\n"},
      {"wrong usage",
       {"render", "--error-format", "json"},
       2,
       "",
       R"({"kind":"error","name":"usage","reason":"TEMPLATE is required; 'tavlo help render' shows the usage",)"
       R"("file":"tavlo"})"
       "\n"},
      {"wrong usage, asked for behind another option's value",
       {"render", "hello", "-o", "--data", "--error-format", "json", "-Z"},
       2,
       "",
       R"({"kind":"error","name":"usage","reason":"The following argument was not expected: -Z; )"
       R"('tavlo help render' shows the usage","file":"tavlo"})"
       "\n"},
      {"an output",
       {"render", "hello", "-o", ".", "--error-format", "json"},
       2,
       "",
       R"({"kind":"error","name":"output","reason":"The file cannot be written: Is a directory","file":"."})"
       "\n"},
  };
  for (const Row& row : rows) expectRow(row);
}

TEST(Program, TellsItsVersion) {
  const WorkFolder folder;
  ProgramRun run(folder, {"--version"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_TRUE(std::regex_match(run.output(), std::regex("tavlo [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << run.output();
  EXPECT_EQ(run.errors(), "");
}

struct HelpRow {
  std::vector<std::string> arguments;
  std::vector<std::string> parts;
};

TEST(Program, HelpsOnItsUsage) {
  const std::vector<std::string> options = {"Usage: tavlo render [OPTIONS] TEMPLATE",
                                            "-d,--data FILE",
                                            "-D,--define NAME=TEXT",
                                            "NAME:=JSON",
                                            "-o,--output FILE",
                                            "--no-library",
                                            "--error-format",
                                            "Exit status:"};
  const HelpRow rows[] = {
      {{"--help"}, {"Usage: tavlo", "render", "help", "--version"}},
      {{"help"}, {"Usage: tavlo", "render", "help", "--version"}},
      {{"help", "render"}, options},
      {{"render", "-" + std::string(100'000, 'h'), "-" + std::string(100'000, 'h')}, {"Usage: tavlo"}},
      {{"render", "--help"}, options},
      {{"help", "help"}, {"Usage: tavlo help", "COMMAND"}},
  };
  for (const HelpRow& row : rows) {
    const WorkFolder folder;
    ProgramRun run(folder, row.arguments);
    EXPECT_EQ(run.status(), 0) << row.arguments.back();
    EXPECT_EQ(run.errors(), "") << row.arguments.back();
    const std::string output = run.output();
    for (const std::string& part : row.parts) EXPECT_NE(output.find(part), std::string::npos) << part << output;
  }
}

}  // namespace

}  // namespace tavlo
