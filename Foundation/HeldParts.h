#pragma once

#include <utility>
#include <vector>

#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Keeps what converted arguments refer to within a container, for the time of a call: between the conversions a host's
// code may run, which may take the elements out of it. What an execution converts that runs meanwhile is not kept.
class HeldParts {
 public:
  // Has the conversions of this thread keep their parts here for as long as it lives.
  class Collecting {
   public:
    explicit Collecting(HeldParts& parts) noexcept : Collecting(&parts) {
      parts.execution_ = WorkMeter::Scope::latest();
    }
    Collecting(const Collecting&) = delete;
    Collecting& operator=(const Collecting&) = delete;
    ~Collecting() { exchange(outer_); }

   protected:
    explicit Collecting(HeldParts* parts) noexcept : outer_(exchange(parts)) {}

   private:
    HeldParts* outer_;
  };
  // Around a host's code that runs between two conversions: those that it makes keep nothing for the one around them.
  class SetAside : public Collecting {
   public:
    SetAside() noexcept : Collecting(nullptr) {}
  };

  // Called by a conversion; keeps nothing where nobody collects.
  static void hold(const Value& part);

 private:
  static HeldParts* exchange(HeldParts* parts) noexcept;

  std::vector<Value> parts_;
  const WorkMeter::Scope* execution_ = nullptr;  // in which they are converted
};

// Stands in its place where no argument refers to parts.
struct NoParts {};

}  // namespace tavlo
