#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/Name.h"
#include "Source/KorTemplatePlace.h"

namespace tavlo {

// A call of a function that was under way when something failed.
class KorTemplateCall {
 public:
  KorTemplateCall(Name functionName, KorTemplatePlace place)
      : functionName_(std::move(functionName)), place_(std::move(place)) {}

  // As the template calls it.
  std::string_view functionName() const noexcept { return functionName_.view(); }
  // The statement that calls it.
  const KorTemplatePlace& place() const noexcept { return place_; }

 private:
  Name functionName_;
  KorTemplatePlace place_;
};

// Where something failed, and in which calls.
struct KorTemplateTrace {
  // A chain of calls is kept up to that many.
  static constexpr std::size_t kMostCalls = 1000;

  KorTemplatePlace place;              // of the statement that ran
  std::vector<KorTemplateCall> calls;  // the innermost first; beyond kMostCalls the outer ones are left out
  std::size_t callCount = 0;           // of all calls
};

// Why a template failed to compile or to run, or why a function failed that a template called: what the exception says,
// and where in the templates it was raised. A host may keep it for as long as it likes; copying it cannot fail.
class KorTemplateFailure {
 public:
  using SharedTrace = std::shared_ptr<const KorTemplateTrace>;

  // No failure: without any text, nowhere.
  KorTemplateFailure() = default;
  // Where there is not even the memory for the texts, it is a failure of that. The trace may be absent.
  KorTemplateFailure(std::string_view name, std::string_view reason, SharedTrace trace) noexcept;
  // That of the exception whose handler calls this; absent for a return on its way, which is none.
  static std::optional<KorTemplateFailure> ofCurrentException(const SharedTrace& trace) noexcept;

  // The exception's name: that of an `NSException`, "KorTemplateLimitException", "std::bad_alloc", "std::exception" for
  // every other one of that family, and "exception" for what is none.
  const std::string& name() const noexcept;
  // What it says.
  const std::string& reason() const noexcept;
  // The statement at which it was raised; for a failed compilation what could not be read.
  const KorTemplatePlace& place() const noexcept { return trace().place; }
  // The functions that were running, the innermost first, and how many there were: of a very long chain only the inner
  // end is kept.
  const std::vector<KorTemplateCall>& calls() const noexcept { return trace().calls; }
  std::size_t callCount() const noexcept { return trace().callCount; }

  // What a person is told: "template:line:column: name: reason", and where the place is known the line of the template
  // with a caret below it. Each line is ended with "\n".
  std::string text() const;

  // The exception itself, for failures that a call has answered with instead of raising it; absent for all others.
  const std::exception_ptr& exception() const noexcept { return exception_; }
  void setException(std::exception_ptr exception) noexcept { exception_ = std::move(exception); }
  // Raises the exception; an `NSException` of the same name and reason where that is not at hand.
  [[noreturn]] void raise() const;

 private:
  struct Texts {
    std::string name;
    std::string reason;
  };

  const KorTemplateTrace& trace() const noexcept;

  std::shared_ptr<const Texts> texts_;
  SharedTrace trace_;
  std::exception_ptr exception_;
};

// The text of a failure as text() gives it, from its parts; `where` is what stands before the name.
std::string textOfFailure(const std::string& where, const std::string& name, const std::string& reason,
                          const std::string& excerpt);

}  // namespace tavlo
