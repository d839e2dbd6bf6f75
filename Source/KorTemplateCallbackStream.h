#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Hands what is written to a callable of the host's, in large pieces: when so much has gathered, when it is flushed,
// before a diagnostic and when an execution has ended, whichever way.
//
// What the callable raises passes through; the piece that it was given counts as delivered. It may write to this stream
// itself: that text comes behind.
class KorTemplateCallbackStream final : public KorTemplateStream {
 public:
  // The text is valid UTF-8, never empty, and good for the call only: one whole output behind the other.
  using Callback = std::function<void(std::string_view)>;
  static constexpr std::size_t kCapacity = std::size_t{64} * 1024;

  // The callback may not be empty. With a capacity of 0 each output is handed over by itself, at once.
  explicit KorTemplateCallbackStream(Callback callback, std::size_t capacity = kCapacity);
  static Ref<KorTemplateCallbackStream> streamWithCallback(Callback callback, std::size_t capacity = kCapacity);

  // Raises `NSInvalidArgumentException` for an absent text.
  void write(const Text& text) override;
  void flush() override;

  const char* className() const override { return "KorTemplateCallbackStream"; }

 private:
  Callback callback_;
  std::size_t capacity_;
  std::string gathered_;
};

}  // namespace tavlo
