#include "Source/KorTemplateFailure.h"

#include <exception>
#include <new>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/Lasting.h"
#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/PrintableText.h"

namespace tavlo {

namespace {

constexpr const char* kOutOfMemory = "std::bad_alloc";

}  // namespace

KorTemplateFailure::KorTemplateFailure(std::string_view name, std::string_view reason, SharedTrace trace) noexcept
    : trace_(std::move(trace)) {
  try {
    texts_ = std::make_shared<const Texts>(Texts{asValidUTF8(name), asValidUTF8(reason)});
  } catch (const std::bad_alloc&) {
    static const Lasting<Texts> outOfMemory(kOutOfMemory, "out of memory");  // short enough to need no memory itself
    texts_ = {std::shared_ptr<const Texts>(), &outOfMemory.object};
  }
}

std::optional<KorTemplateFailure> KorTemplateFailure::ofCurrentException(const SharedTrace& trace) noexcept {
  // The end of a thread (`pthread_exit()`, `pthread_cancel()`) runs through handlers too. It is no exception of C++,
  // and the process ends where a handler keeps it. Nor can what another language has raised be looked at.
  if (std::current_exception() == nullptr) {
    return KorTemplateFailure("exception", "The thread ends, or the host has raised what is not of C++", trace);
  }
  try {
    throw;
  } catch (const KorTemplateReturnIndication&) {
    return {};
  } catch (const NSException& exception) {
    return KorTemplateFailure(exception.name(), exception.description(), trace);
  } catch (const KorTemplateLimitException& limit) {
    return KorTemplateFailure("KorTemplateLimitException", limit.what(), trace);
  } catch (const std::bad_alloc&) {
    return KorTemplateFailure(kOutOfMemory, "There is not enough memory", trace);
  } catch (const std::exception& exception) {
    return KorTemplateFailure("std::exception", reasonOf(exception), trace);
  } catch (...) {
    return KorTemplateFailure("exception", "The host has raised what is no std::exception", trace);
  }
}

const std::string& KorTemplateFailure::name() const noexcept {
  static const Lasting<std::string> none;
  return texts_ == nullptr ? none.object : texts_->name;
}

const std::string& KorTemplateFailure::reason() const noexcept {
  static const Lasting<std::string> none;
  return texts_ == nullptr ? none.object : texts_->reason;
}

const KorTemplateTrace& KorTemplateFailure::trace() const noexcept {
  static const Lasting<KorTemplateTrace> nowhere;
  return trace_ == nullptr ? nowhere.object : *trace_;
}

std::string KorTemplateFailure::text() const {
  return textOfFailure(place().description(), name(), reason(), place().excerpt());
}

void KorTemplateFailure::raise() const {
  if (exception_ != nullptr) std::rethrow_exception(exception_);
  throw NSException(name(), reason());
}

std::string textOfFailure(const std::string& where, const std::string& name, const std::string& reason,
                          const std::string& excerpt) {
  return where + ": " + name + ": " + printable(reason) + '\n' + excerpt;
}

}  // namespace tavlo
