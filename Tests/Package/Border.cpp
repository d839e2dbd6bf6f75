#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "Tests/Package/Plugin/Plugin.h"

namespace tavlo::test {

namespace {

// The plug-in, opened so that its symbols and the program's do not meet.
const Plugin& plugin() {
  static const Plugin* const opened = [] {
    void* const library = dlopen(TAVLO_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    return static_cast<const Plugin*>(dlsym(library, "tavloPlugin"));
  }();
  return *opened;
}

std::string rendered(const char* text, KorTemplateEnvironment& environment) {
  const auto output = KorTemplateStringStream::stringStream();
  environment.setOutputStream(output);
  environment.setErrorStream(output);
  KorTemplate::compile(text)->executeWithEnvironment(&environment);
  return std::string(output->buffer()->string());
}

TEST(Border, AProgramCatchesWhatAPluginRaises) {
  EXPECT_THROW(plugin().raiseSyntaxError(), KorTemplateSyntaxErrorException);
  EXPECT_THROW(plugin().raiseSyntaxError(), NSException);
  EXPECT_THROW(plugin().raiseException(), NSException);
  EXPECT_THROW(plugin().raiseLimit(), KorTemplateLimitException);
  EXPECT_THROW(plugin().raiseReturn(), KorTemplateReturnIndication);
}

TEST(Border, APluginCatchesWhatTheLibraryRaises) {
  EXPECT_TRUE(plugin().catchesExceptions());
}

TEST(Border, TheLibraryCatchesThePluginsOwnException) {
  const auto environment = KorTemplateEnvironment::environment();
  plugin().addFunction(*environment);
  EXPECT_EQ(rendered("<<?= fail() ?>>", *environment), "<the plug-in has failed>");
}

TEST(Border, ObjectsCrossInBothDirections) {
  const Value theirs = plugin().parcel(2.5);
  ASSERT_NE(hostObject<Parcel>(theirs), nullptr);
  EXPECT_EQ(hostObject<Parcel>(theirs)->weight, 2.5);
  Parcel ours{4.5};
  EXPECT_EQ(plugin().weightOf(hostReference(ours)), 4.5);
  EXPECT_EQ(plugin().weightOf("no parcel"), -1);

  const auto environment = KorTemplateEnvironment::environment();
  environment->setGlobal("theirs", theirs);
  environment->setGlobal("ours", hostReference(ours));
  EXPECT_EQ(rendered("<?= $theirs.weight ?> <?= $ours.weight ?>", *environment), "2.5 4.5");
}

}  // namespace

}  // namespace tavlo::test
