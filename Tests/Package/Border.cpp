#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
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

// What this process holds in memory, in bytes.
double residentBytes() {
  std::ifstream status("/proc/self/statm");
  double total = 0;
  double resident = 0;
  status >> total >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void useAPluginWithItsOwnLibrary() {
  constexpr int kBlocks = 3'000;
  void* const library = dlopen(TAVLO_PLUGIN_WITH_ITS_OWN, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_TRUE(reinterpret_cast<bool (*)(int)>(dlsym(library, "tavloCompiles"))(kBlocks));
  dlclose(library);
  EXPECT_EQ(dlopen(TAVLO_PLUGIN_WITH_ITS_OWN, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// What its thread has kept for the next template, half a mebibyte, goes with the plug-in.
TEST(Border, APluginThatHasTheLibraryWithinLeavesLittle) {
  constexpr int kTimes = 20;
  constexpr double kBytesLeft = 200e3;
  useAPluginWithItsOwnLibrary();
  const double before = residentBytes();
  for (int time = 0; time < kTimes; ++time) useAPluginWithItsOwnLibrary();
  EXPECT_LT((residentBytes() - before) / kTimes, kBytesLeft);
}

}  // namespace

}  // namespace tavlo::test
