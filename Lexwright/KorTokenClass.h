#pragma once

namespace tavlo {

// What a token is to the language that is scanned. It carries nothing: classes are told apart by their address.
class KorTokenClass {
 public:
  KorTokenClass() = default;
  KorTokenClass(const KorTokenClass&) = delete;
  KorTokenClass& operator=(const KorTokenClass&) = delete;
};

}  // namespace tavlo
