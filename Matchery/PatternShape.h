#pragma once

#include <cstdint>
#include <string_view>

namespace tavlo {

// What can be told of a pattern before the engine sees it. Every figure may be too large, none is too small.
struct PatternShape {
  // How deep groups, classes and quantifiers of quantifiers lie inside one another. The engine's compiler recurses as
  // deep. The count ends soon after `kCounted`.
  std::int32_t depth = 0;
  // How often the pattern calls one of its groups ("\g<name>"), and how deep the calls lie, all together: the compiler
  // follows calls as it does groups, and a group that is called twice it visits twice.
  std::int32_t calls = 0;
  std::int32_t depthOfCalls = 0;
  // The steps of the longest way through the pattern without a retry: those that depend on the text's length, a step
  // for each of its characters, and how often counted quantifiers and calls repeat
  // them.
  std::uint64_t loops = 0;
  std::uint64_t repetitions = 1;
  // Whether the engine may go through more of the text between two retries than the pattern is long: quantifiers but
  // "?", references, calls and what looks behind do that, groups and alternatives do not.
  bool goesThroughText = false;
  // Places such as "\b" in groups that may be repeated, which every turn looks at anew though they take no character; a
  // reference or a condition counts as two.
  std::uint64_t places = 0;
  // What else every turn of such a group goes through: itself, groups, alternatives and quantifiers in it. A quantifier
  // of a quantifier counts as two.
  std::uint64_t turns = 0;
  // The longest way through what stands between two quantifiers, in letters; a class, and a letter whose case may not
  // matter, takes as long as four, and "\b" as twelve.
  std::uint64_t row = 0;
  // How many letters more than its bytes the pattern takes as long as in a text beyond ASCII, where classes, "\b" and
  // what ignores case look each character up in tables.
  std::uint64_t lettersBeyondASCII = 0;
  // Types such as "\d" outside of classes, each of which takes as much memory as hundreds of letters.
  std::uint64_t types = 0;
  // The power of the text's length that one such step may take at most. It is 2 where the engine looks around, for
  // every turn of a loop anew, or goes back over the characters that "\X" joins; more where it does so inside that. In
  // a text that is ASCII nothing is joined but the two of a line's end.
  std::int32_t power = 1;
  std::int32_t powerInASCII = 1;
  // What the engine's compiler has to do for sets of characters, in ranges to be merged and kept: a property, or a type
  // such as "\w" in a class, weighs 1 and takes some 6 KiB and 70 us. Where case does not matter sets and classes weigh
  // 4, and 32 bytes of the pattern 1. A class inside another weighs 1 for each 512 bytes of that before it, and what is
  // intersected by "&&" 1 for 131,072 pairs of ranges, as many as its characters and 700 for a property; and each
  // reference to a name 1 for 4,096 groups with names, of which it keeps all of its name; 20,000 pairs of groups with
  // names 1, as each name may be looked for among all others that stand in one place of a table; and "[:" in a class 1
  // for 8 KiB up to the next "]".
  std::uint64_t weight = 0;
  // How many bytes of the pattern the engine's compiler goes through: into a group that is called once for each way
  // there, through what looks behind again for each group around it that does, and half as long through groups that are
  // repeated, have alternatives or a condition, or look around; a letter that is repeated is there as often. The count
  // ends soon after `kVisitsCounted`.
  std::uint64_t visits = 0;
  // Whether it has classes, types or properties, in which a character beyond ASCII is searched for; and its bytes where
  // case may not matter, each of which may take as much memory as a hundred letters.
  bool hasClasses = false;
  std::uint64_t bytesOfAnyCase = 0;
  // Whether it has a reference such as "\k<name+1>", or a condition such as "(?(<name+1>)", for which the engine looks
  // through its whole stack each time, which none of its limits counts.
  bool refersToLevels = false;
  // The most groups that have one name, where the pattern refers back by name: the engine compares with one after the
  // other, each with as much as the whole text.
  std::uint32_t namesakes = 1;

  static constexpr std::int32_t kCounted = 200;
  static constexpr std::uint64_t kVisitsCounted = std::uint64_t{1} << 20;

  [[gnu::visibility("hidden")]] static PatternShape of(std::string_view pattern);
};

}  // namespace tavlo
