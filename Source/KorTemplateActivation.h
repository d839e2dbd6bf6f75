#pragma once

namespace tavlo {

class KorTemplateFunction;
class KorTemplateSource;
class KorTemplateStatement;
class Name;

// One level of what runs in an environment: a call of a function by a template, a template, or what a host has entered
// the engine for. It lies on the thread's stack for as long as the level runs.
struct KorTemplateActivation {
  // A call; the name is as the template writes it.
  KorTemplateActivation(const KorTemplateFunction& called, const Name& name) noexcept
      : function(&called), functionName(&name) {}  // NOLINT(clang-analyzer-optin.cplusplus.UninitializedObject)
  // A template, or a function that a host calls; absent for everything else.
  explicit KorTemplateActivation(const KorTemplateSource* running) noexcept
      : outer(nullptr), caller(nullptr), function(nullptr), source(running) {}
  KorTemplateActivation(const KorTemplateActivation&) = delete;
  KorTemplateActivation& operator=(const KorTemplateActivation&) = delete;

  // The environment sets these two when the level begins.
  const KorTemplateActivation* outer;  // NOLINT(*-member-init): the level around this one; null for the outermost
  const KorTemplateStatement* caller;  // NOLINT(*-member-init): at which the level began; null where none ran

  const KorTemplateFunction* function;  // of a call; null for every other level
  union {
    const Name* functionName;         // of a call
    const KorTemplateSource* source;  // of every other level; null where that is not known
  };
};

}  // namespace tavlo
