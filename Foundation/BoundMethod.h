#pragma once

namespace tavlo {

class HostMethod;

// A method and the object to call it with: what an object answers to a selector.
struct BoundMethod {
  const HostMethod* method = nullptr;  // lives as long as the object; null where there is no such method
  void* self = nullptr;                // as the class that the method is of
};

}  // namespace tavlo
