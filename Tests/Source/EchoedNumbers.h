#pragma once

#include "Foundation/HostObject.h"
#include "Foundation/Value.h"

namespace tavlo::test {

enum class Level : unsigned char { Low, High = 255 };

// Answers what it is given, in every type of numbers, and as a value.
struct Echo {
  template <class T>
  T same(T number) const {
    return number;
  }
};

inline void describeHostClass(HostClass<Echo>& echo) {
  echo.name("Echo")
      .method("c:", &Echo::same<signed char>)
      .method("C:", &Echo::same<unsigned char>)
      .method("s:", &Echo::same<short>)
      .method("S:", &Echo::same<unsigned short>)
      .method("i:", &Echo::same<int>)
      .method("I:", &Echo::same<unsigned>)
      .method("l:", &Echo::same<long>)
      .method("L:", &Echo::same<unsigned long>)
      .method("q:", &Echo::same<long long>)
      .method("Q:", &Echo::same<unsigned long long>)
      .method("f:", &Echo::same<float>)
      .method("d:", &Echo::same<double>)
      .method("bool:", &Echo::same<bool>)
      .method("char:", &Echo::same<char>)
      .method("level:", &Echo::same<Level>)
      .method("value:", &Echo::same<Value>);
}

}  // namespace tavlo::test
