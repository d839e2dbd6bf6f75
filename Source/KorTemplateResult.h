#pragma once

#include <optional>
#include <utility>
#include <variant>

#include "Foundation/NSException.h"
#include "Source/KorTemplateFailure.h"

namespace tavlo {

// What a call has led to that answers with its failure instead of raising it: a value, or why there is none.
template <class T>
class [[nodiscard]] KorTemplateResult {
 public:
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  KorTemplateResult(T value) : outcome_(std::in_place_index<0>, std::move(value)) {}
  KorTemplateResult(KorTemplateFailure failure) : outcome_(std::in_place_index<1>, std::move(failure)) {}
  // NOLINTEND(google-explicit-constructor)

  bool succeeded() const noexcept { return outcome_.index() == 0; }
  explicit operator bool() const noexcept { return succeeded(); }

  // The value. Where there is none, raises the exception that the call would have raised.
  const T& value() const {
    requireSuccess();
    return *std::get_if<0>(&outcome_);
  }
  T& value() {
    requireSuccess();
    return *std::get_if<0>(&outcome_);
  }
  // Unchecked: succeeded() holds.
  const T& operator*() const noexcept { return *std::get_if<0>(&outcome_); }
  const T* operator->() const noexcept { return std::get_if<0>(&outcome_); }

  // Raises `NSInternalInconsistencyException` where the call has succeeded.
  const KorTemplateFailure& failure() const {
    requireParameter(!succeeded(), "the call has failed");
    return *std::get_if<1>(&outcome_);
  }

 private:
  void requireSuccess() const {
    if (!succeeded()) std::get_if<1>(&outcome_)->raise();
  }

  std::variant<T, KorTemplateFailure> outcome_;
};

// The same for a call without a value.
template <>
class [[nodiscard]] KorTemplateResult<void> {
 public:
  KorTemplateResult() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): implicit on purpose
  KorTemplateResult(KorTemplateFailure failure) : failure_(std::move(failure)) {}

  bool succeeded() const noexcept { return !failure_.has_value(); }
  explicit operator bool() const noexcept { return succeeded(); }

  // Raises the exception that the call would have raised, where it has failed.
  void value() const {
    if (failure_.has_value()) failure_->raise();
  }

  // Raises `NSInternalInconsistencyException` where the call has succeeded.
  const KorTemplateFailure& failure() const {
    requireParameter(failure_.has_value(), "the call has failed");
    return *failure_;
  }

 private:
  std::optional<KorTemplateFailure> failure_;
};

}  // namespace tavlo
