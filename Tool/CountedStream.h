#pragma once

#include <cstdint>
#include <utility>

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Passes everything on to another stream, and counts it.
class CountedStream final : public KorTemplateStream {
 public:
  // The stream may not be absent.
  explicit CountedStream(Ref<KorTemplateStream> stream) : stream_(std::move(stream)) {}

  void write(const Text& text) override {
    stream_->write(text);
    bytes_ += text.view().size();
  }
  void flush() override { stream_->flush(); }

  std::uint64_t bytes() const noexcept { return bytes_; }

  const char* className() const override { return "CountedStream"; }

 private:
  Ref<KorTemplateStream> stream_;
  std::uint64_t bytes_ = 0;
};

}  // namespace tavlo
