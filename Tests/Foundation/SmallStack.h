#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

#include "Foundation/KorTemplateLimits.h"

namespace tavlo::test {

// Room for a thousand levels even in an instrumented build, and far too little for a million in any.
inline constexpr std::size_t kSmallStack = 4 * 1024 * 1024;

// Runs the body, which may not throw, on a thread with a stack of that many bytes.
inline void runOnStackOf(std::size_t bytes, std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, bytes);
  pthread_t thread{};
  const auto start = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  const int failure = pthread_create(&thread, &attributes, start, &body);
  pthread_attr_destroy(&attributes);
  if (failure != 0) throw std::runtime_error("no thread could be made");
  pthread_join(thread, nullptr);
}

// How the body ends on such a thread: "well", with the limit of the "stack", or with the text of another limit.
inline std::string outcomeOnStackOf(std::size_t bytes, const std::function<void()>& body) {
  std::string outcome;
  runOnStackOf(bytes, [&] {
    try {
      body();
      outcome = "well";
    } catch (const KorTemplateLimitException& exception) {
      outcome = exception.limit() == KorTemplateLimit::Stack ? "stack" : exception.what();
    }
  });
  return outcome;
}

}  // namespace tavlo::test
