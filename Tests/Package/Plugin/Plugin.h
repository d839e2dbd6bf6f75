#pragma once

#include <tavlo/tavlo.h>

namespace tavlo::test {

// A class that the program and the plug-in both know, each from its own copy of this header.
struct Parcel {
  double weight = 0;
};

inline void describeHostClass(HostClass<Parcel>& parcel) {
  parcel.name("Parcel").property("weight", &Parcel::weight);
}

// What the plug-in offers under the name "tavloPlugin".
struct Plugin {
  // Raise what their names say.
  void (*raiseSyntaxError)();
  void (*raiseException)();
  void (*raiseLimit)();
  void (*raiseReturn)();
  // Adds the function "fail", which raises an exception of the plug-in's own class.
  void (*addFunction)(KorTemplateEnvironment& environment);
  // A parcel of the plug-in's own.
  Value (*parcel)(double weight);
  // The weight of a parcel that the program has made; -1 where it is none.
  double (*weightOf)(const Value& parcel);
  // Whether the plug-in catches, as such, what a template's run raises in the library.
  bool (*catchesExceptions)();
};

}  // namespace tavlo::test
