#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Source/KorTemplateFailure.h"

namespace tavlo {

// What a template has asked for that is not there, and reads as null.
enum class KorTemplateUndefined : std::uint8_t { Variable, Key, Function };

// What becomes of it, beside being counted.
enum class KorTemplateUndefinedPolicy : std::uint8_t {
  Count,  // nothing
  Warn,   // a diagnostic on the error stream, with name and place
  Fail,   // `NSGenericException` is raised, with name and place; in a function that a template calls, that is a
          // diagnostic
};

// What was not there, and where it was asked for.
struct KorTemplateObservation {
  KorTemplateUndefined kind = KorTemplateUndefined::Variable;
  std::string name;        // as the template writes it: "$user", "$user.name", "format"
  KorTemplateTrace trace;  // the statement, and the calls under way

  // "Undefined variable "$user" at page.html:3:5".
  std::string text() const;
};

// Hears of the variables, keys and functions that templates use though they are not defined. An environment has none
// unless it is given one; several environments of one thread may share it.
//
// A variable counts when its value is used, not where it is assigned to. A key counts where an object does not know it
// or a dictionary has no such entry; a property that has no value is defined all the same.
class KorTemplateObserver final : public NSObject {
 public:
  using Callback = std::function<void(const KorTemplateObservation&)>;

  // Counts, and does no more.
  KorTemplateObserver() = default;
  static Ref<KorTemplateObserver> observer() { return makeRef<KorTemplateObserver>(); }

  void setPolicy(KorTemplateUndefined kind, KorTemplateUndefinedPolicy policy) noexcept { rowOf(kind).policy = policy; }
  // For all three kinds.
  void setPolicy(KorTemplateUndefinedPolicy policy) noexcept;
  // Called for each, before the policy is followed; what it raises is raised in the template. Empty for none.
  void setCallback(Callback callback) { callback_ = std::move(callback); }

  // How many there have been, since the observer was made or resetCounts() was called.
  std::uint64_t count(KorTemplateUndefined kind) const noexcept { return rows_[static_cast<std::size_t>(kind)].count; }
  std::uint64_t count() const noexcept;
  void resetCounts() noexcept;

  const char* className() const override { return "KorTemplateObserver"; }

  // What the engine uses.

  KorTemplateUndefinedPolicy policy(KorTemplateUndefined kind) const noexcept {
    return rows_[static_cast<std::size_t>(kind)].policy;
  }
  void noteOne(KorTemplateUndefined kind) noexcept { ++rowOf(kind).count; }
  const Callback& callback() const noexcept { return callback_; }

 private:
  struct Row {
    KorTemplateUndefinedPolicy policy = KorTemplateUndefinedPolicy::Count;
    std::uint64_t count = 0;
  };

  Row& rowOf(KorTemplateUndefined kind) noexcept { return rows_[static_cast<std::size_t>(kind)]; }

  std::array<Row, 3> rows_;  // by kind
  Callback callback_;
};

}  // namespace tavlo
