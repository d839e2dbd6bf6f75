#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

namespace tavlo::test {

// Runs the body on a thread of its own with a stack of 256 KiB.
inline void runOnSmallThread(std::function<void()> body) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  pthread_t thread{};
  const auto start = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &body), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace tavlo::test
