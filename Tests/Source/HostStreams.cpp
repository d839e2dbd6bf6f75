#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateOStreamStream.h"
#include "Source/KorTemplateStringStream.h"
#include "Source/KorTemplateWriteException.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/FailingMemory.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A pipe that is read to its end by a thread of its own.
class Pipe {
 public:
  Pipe() {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    reader_ = ends[0];
    writer_ = ends[1];
  }
  ~Pipe() {
    closeWriter();
    if (thread_.joinable()) thread_.join();
    ::close(reader_);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int writer() const { return writer_; }
  // What there is to be read at this moment, without waiting.
  std::string readSoFar() const {
    std::string text(1024, '\0');
    ::fcntl(reader_, F_SETFL, O_NONBLOCK);
    const ssize_t size = ::read(reader_, text.data(), text.size());
    text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return text;
  }
  void startReading() {
    thread_ = std::thread([this] {
      char buffer[1000];
      for (ssize_t size = 0; (size = ::read(reader_, buffer, sizeof buffer)) > 0;) {
        text_.append(buffer, static_cast<std::size_t>(size));
      }
    });
  }
  // All that was written, once the thread has read it.
  const std::string& finish() {
    closeWriter();
    thread_.join();
    return text_;
  }
  void closeReader() {
    ::close(reader_);
    reader_ = -1;
  }

 private:
  void closeWriter() {
    if (writer_ != -1) ::close(writer_);
    writer_ = -1;
  }

  int reader_;
  int writer_;
  std::thread thread_;
  std::string text_;
};

// A stage that writes elsewhere.
struct StreamStage : Stage {
  explicit StreamStage(const Ref<KorTemplateStream>& stream) {
    environment->setOutputStream(stream);
    define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
    define("foreign", [](auto&&...) -> Value { throw 42; });
  }
};

TEST(AFileDescriptorStream, DeliversAtTheEndAndBeforeDiagnostics) {
  const Pipe pipe;
  const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer()));
  std::string before;
  stage.errors->onWrite = [&](const Text&) { before = pipe.readSoFar(); };
  stage.define("look", [&](auto&&...) -> Value { return pipe.readSoFar(); });
  stage.run("a<?= 1 ?>(<?= look() ?>)<? boom() ?>b");
  EXPECT_EQ(before, "a1()");
  EXPECT_EQ(pipe.readSoFar(), "b");
}

TEST(AFileDescriptorStream, DeliversAlsoWhenTheExecutionFails) {
  const Pipe pipe;
  const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer()));
  EXPECT_NE(raisedBy([&] { stage.run("a<? 1 / 0 ?>b"); }), "nothing");
  EXPECT_EQ(pipe.readSoFar(), "a");
  EXPECT_THROW(stage.run("c<? foreign() ?>d"), int);
  EXPECT_EQ(pipe.readSoFar(), "c");
}

TEST(AFileDescriptorStream, WritesTextsOfEverySizeInOrder) {
  constexpr std::size_t kCapacity = KorTemplateFileDescriptorStream::kCapacity;
  for (const bool isBlocking : {true, false}) {
    Pipe pipe;
    if (!isBlocking) ::fcntl(pipe.writer(), F_SETFL, O_NONBLOCK);
    pipe.startReading();
    const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer()));
    std::string expected;
    char letter = 'a';
    for (const std::size_t size : {std::size_t{1}, kCapacity - 1, kCapacity, kCapacity + 1, 5 * kCapacity,
                                   std::size_t{0}, std::size_t{2}, kCapacity - 2, std::size_t{3}}) {
      const std::string text(size, letter++);
      expected += text;
      stage.set("t", text);
      stage.run("<?= $t ?>");
    }
    EXPECT_EQ(pipe.finish() == expected, true) << isBlocking;
  }
}

TEST(AStreamThatIsReplaced, IsAskedOnceToDeliver) {
  class Counting final : public KorTemplateStream {
   public:
    void write(const Text& /*text*/) override {}
    void flush() override { ++flushes; }
    int flushes = 0;
  };
  const Ref<Counting> stream = makeRef<Counting>();
  const StreamStage stage(stream);
  stage.environment->setFunction("part", [](KorTemplateEnvironment& environment) {
    const Ref<KorTemplateStream> old = environment.outputStream();
    environment.setOutputStream(KorTemplateStringStream::stringStream());
    environment.setOutputStream(old);
  });
  stage.run(repeated("<? part() ?>", 100));
  EXPECT_LE(stream->flushes, 2);
  EXPECT_GE(stream->flushes, 1);
}

// Each replaces itself when it is asked to deliver.
class EndlessStream final : public KorTemplateStream {
 public:
  EndlessStream(KorTemplateEnvironment& environment, int& flushes) : environment_(environment), flushes_(flushes) {}
  void write(const Text& /*text*/) override {}
  void flush() override {
    ++flushes_;
    environment_.setOutputStream(makeRef<EndlessStream>(environment_, flushes_));
  }

 private:
  KorTemplateEnvironment& environment_;
  int& flushes_;
};

TEST(AStreamThatIsReplaced, EndsTheExecutionWhereThatGoesOnForEver) {
  const Stage stage;
  int flushes = 0;
  stage.environment->setOutputStream(makeRef<EndlessStream>(*stage.environment, flushes));
  EXPECT_EQ(raisedBy([&] { stage.run("text"); }),
            "NSInternalInconsistencyException: An output stream is replaced whenever one is flushed");
  EXPECT_LT(flushes, 3'000);
  flushes = 0;
  EXPECT_EQ(raisedBy([&] { stage.run("text<? 1 / 0 ?>"); }), "NSGenericException: Divide by zero");
  EXPECT_LT(flushes, 3'000);
}

// A reader that takes nothing holds up no execution whose time is limited, and what it has not taken waits.
TEST(AFileDescriptorStream, WaitsForItsReaderUntilTheTimeIsOver) {
  Pipe pipe;
  ::fcntl(pipe.writer(), F_SETFL, O_NONBLOCK);
  const auto stream = KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer());
  const StreamStage stage(stream);
  KorTemplateLimits limits;
  limits.time = std::chrono::milliseconds(100);
  stage.environment->setLimits(limits);
  std::string expected;
  for (const std::size_t size : {std::size_t{1'000'000}, std::size_t{1'000}}) {
    stage.set("t", std::string(size, 'x'));
    expected.append(size, 'x');
    const auto start = std::chrono::steady_clock::now();
    try {
      stage.run("<?= $t ?>");
      ADD_FAILURE() << size;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_EQ(exception.limit(), KorTemplateLimit::Time) << size;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << size;
  }
  pipe.startReading();
  stream->flush();
  EXPECT_EQ(pipe.finish().size(), 1'000'000U);  // the second text stands behind one that did not go out
}

// What was written before a limit stays written, however slow the reader is.
TEST(AFileDescriptorStream, WaitsForItsReaderBehindOtherLimits) {
  constexpr std::size_t kBytes = 50'000;
  for (const bool limitsOutput : {false, true}) {
    Pipe pipe;
    ::fcntl(pipe.writer(), F_SETFL, O_NONBLOCK);
    ::fcntl(pipe.writer(), F_SETPIPE_SZ, 4096);
    const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer()));
    stage.set("list", makeRef<NSArray>(std::vector<Value>(20'000, 0)));
    KorTemplateLimits limits;
    if (limitsOutput) {
      limits.output = kBytes;
    } else {
      limits.steps = 1 + 1 + kBytes / 10 * 2;  // the template, the loop, and a turn and a text each
    }
    stage.environment->setLimits(limits);
    std::thread reader([&pipe] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      pipe.startReading();
    });
    EXPECT_TRUE(limitReached([&] { stage.run("<? foreach ($x in $list) ?>0123456789<? endforeach ?>"); }).has_value());
    reader.join();
    EXPECT_EQ(pipe.finish().size() / 20, kBytes / 20) << limitsOutput;
  }
}

#ifndef TAVLO_MEMORY_IS_HIDDEN

TEST(AFileDescriptorStream, WritesNothingTwiceWhereMemoryRunsOut) {
  Pipe pipe;
  ::fcntl(pipe.writer(), F_SETFL, O_NONBLOCK);
  ::fcntl(pipe.writer(), F_SETPIPE_SZ, 4096);
  const auto stream = KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer());
  const StreamStage stage(stream);
  KorTemplateLimits limits;
  limits.time = std::chrono::milliseconds(200);
  stage.environment->setLimits(limits);
  std::string text;
  for (int number = 0; number < 4'000; ++number) text += std::to_string(number) + " ";
  stage.set("t", text);
  std::optional<FailingMemory> memory;
  stage.environment->setFunction("outOfMemory", [&] { memory.emplace(0, Failing::ForGood); });
  const Ref<KorTemplate> page = KorTemplate::compile("<?= $t ?><? outOfMemory() ?>");
  try {
    page->executeWithEnvironment(stage.environment.get());
    ADD_FAILURE();
  } catch (const std::bad_alloc&) {
    memory.reset();
  }
  memory.reset();
  pipe.startReading();
  stream->flush();
  EXPECT_EQ(pipe.finish(), text);
}

#endif

TEST(AFileDescriptorStream, EndsTheExecutionWhereItCannotWrite) {
  struct Row {
    const char* what;
    const char* text;
  };
  const std::string large(2 * KorTemplateFileDescriptorStream::kCapacity, 'x');
  const Row rows[] = {
      {"at the end", "a"},
      {"in the template", "<?= $large ?><? never() ?>"},
      {"in a function", "<? function f() ?><?= $large ?><? never() ?><? endfunction ?><? f() ?><? never() ?>"},
  };
  for (const Row& row : rows) {
    const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(-1, "the page"));
    int never = 0;
    stage.define("never", [&](auto&&...) -> Value { return ++never; });
    stage.set("large", large);
    try {
      stage.run(row.text);
      FAIL() << row.what;
    } catch (const KorTemplateWriteException& exception) {
      EXPECT_EQ(exception.errorNumber(), EBADF) << row.what;
      EXPECT_EQ(exception.name(), NSGenericException) << row.what;
      EXPECT_EQ(exception.reason(), "The text cannot be written to the page: Bad file descriptor") << row.what;
    }
    EXPECT_EQ(never, 0) << row.what;
    EXPECT_THAT(stage.errors->writes, IsEmpty()) << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

TEST(AFileDescriptorStream, StaysFailed) {
  Pipe pipe;
  pipe.closeReader();
  std::signal(SIGPIPE, SIG_IGN);
  const Ref<KorTemplateFileDescriptorStream> stream =
      KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer());
  stream->write("a");
  const std::string raised = "NSGenericException: The text cannot be written to file descriptor " +
                             std::to_string(pipe.writer()) + ": Broken pipe";
  EXPECT_EQ(raisedBy([&] { stream->flush(); }), raised);
  EXPECT_EQ(raisedBy([&] { stream->write("b"); }), raised);
  EXPECT_EQ(raisedBy([&] { stream->flush(); }), raised);
  std::signal(SIGPIPE, SIG_DFL);
}

TEST(AFileDescriptorStream, GoesOnWhereASignalInterrupts) {
  struct sigaction action = {};
  struct sigaction old = {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  ::sigaction(SIGUSR1, &action, &old);
  int ends[2] = {-1, -1};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const std::string text(4U << 20, 'y');
  const pthread_t writer = ::pthread_self();
  std::string read;
  std::thread reader([&] {
    char buffer[64 * 1024];
    while (read.size() < text.size()) {
      ::pthread_kill(writer, SIGUSR1);
      const ssize_t size = ::read(ends[0], buffer, sizeof buffer);
      if (size > 0) read.append(buffer, static_cast<std::size_t>(size));
    }
  });
  const StreamStage stage(KorTemplateFileDescriptorStream::streamWithDescriptor(ends[1]));
  stage.set("t", text);
  stage.run("<?= $t ?>");
  reader.join();
  EXPECT_EQ(read == text, true);
  ::close(ends[0]);
  ::close(ends[1]);
  ::sigaction(SIGUSR1, &old, nullptr);
}

TEST(AFileDescriptorStream, LetsAThreadBeCancelledThatWaitsForItsReader) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe(ends), 0);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* writer) -> void* {
                  const auto stream = KorTemplateFileDescriptorStream::streamWithDescriptor(*static_cast<int*>(writer));
                  const StreamStage stage(stream);
                  stage.set("t", std::string(4U << 20, 'y'));
                  stage.run("<?= $t ?>");
                  return writer;
                },
                &ends[1]),
            0);
  char first = ' ';
  ASSERT_EQ(::read(ends[0], &first, 1), 1);
  ASSERT_EQ(pthread_cancel(thread), 0);
  void* answer = nullptr;
  ASSERT_EQ(pthread_join(thread, &answer), 0);
  EXPECT_EQ(answer, PTHREAD_CANCELED);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(AStreamOverAnOStream, WritesAndFlushes) {
  std::ostringstream out;
  const StreamStage stage(KorTemplateOStreamStream::streamWithOStream(out));
  std::string before;
  stage.errors->onWrite = [&](const Text&) { before = out.str(); };
  stage.run("a<?= 1 ?><? boom() ?>b");
  EXPECT_EQ(before, "a1");
  EXPECT_EQ(out.str(), "a1b");
  EXPECT_NE(raisedBy([&] { stage.run("c<? 1 / 0 ?>d"); }), "nothing");
  EXPECT_EQ(out.str(), "a1bc");
}

TEST(AStreamOverAnOStream, RaisesWhereThatHasFailed) {
  std::ostringstream out;
  out.setstate(std::ios::failbit);
  const StreamStage stage(KorTemplateOStreamStream::streamWithOStream(out));
  const std::string raised =
      "NSGenericException: The text cannot be written to the output stream: the stream has failed";
  EXPECT_EQ(raisedBy([&] { stage.run("a"); }), raised);
  EXPECT_EQ(raisedBy([&] { stage.run("<? function f() ?>a<? endfunction ?><? f() ?>"); }), raised);
  EXPECT_THAT(stage.errors->writes, IsEmpty());
  out.clear();
  stage.run("b");
  EXPECT_EQ(out.str(), "b");
  struct FullBuffer : std::streambuf {
  } buffer;
  std::ostream full(&buffer);
  full.exceptions(std::ios::badbit);
  EXPECT_THROW(makeRef<KorTemplateOStreamStream>(full, "the log")->write("a"), std::exception);
}

// Hands all pieces to a list.
struct Pieces {
  std::vector<std::string> list;
  Ref<KorTemplateCallbackStream> stream(std::size_t capacity = KorTemplateCallbackStream::kCapacity) {
    return KorTemplateCallbackStream::streamWithCallback([this](std::string_view text) { list.emplace_back(text); },
                                                         capacity);
  }
};

// It says so itself, before the stream raises what it was asked to.
TEST(AStreamOverAnOStream, IsNotAskedOnceItHasFailed) {
  std::ostringstream failed;
  failed.exceptions(std::ios::failbit);
  failed.clear(std::ios::badbit);
  const Ref<KorTemplateStream> stream = KorTemplateOStreamStream::streamWithOStream(failed);
  EXPECT_THROW(stream->write("a"), KorTemplateWriteException);
  EXPECT_THROW(stream->flush(), KorTemplateWriteException);
}

TEST(ACallbackStream, DeliversAtItsCapacityBeforeDiagnosticsAndAtTheEnd) {
  Pieces pieces;
  const StreamStage stage(pieces.stream(4));
  stage.run("ab<?= \"cd\" ?><?= \"e\" ?><?= \"fghij\" ?>k<? boom() ?>l");
  EXPECT_THAT(pieces.list, ElementsAre("abcd", "e", "fghij", "k", "l"));
  pieces.list.clear();
  EXPECT_NE(raisedBy([&] { stage.run("m<? 1 / 0 ?>n"); }), "nothing");
  EXPECT_THROW(stage.run("o<? foreign() ?>p"), int);
  EXPECT_THAT(pieces.list, ElementsAre("m", "o"));
}

TEST(ACallbackStream, HandsOverEachOutputWithoutACapacity) {
  Pieces pieces;
  const StreamStage stage(pieces.stream(0));
  stage.run("a<?= 1 ?><?= \"\" ?><?= null ?>b");
  EXPECT_THAT(pieces.list, ElementsAre("a", "1", "b"));
}

TEST(ACallbackStream, LetsPassWhatItsCallbackRaises) {
  std::vector<std::string> pieces;
  const StreamStage stage(KorTemplateCallbackStream::streamWithCallback([&](std::string_view text) {
    pieces.emplace_back(text);
    if (text == "a") throw 42;
  }));
  EXPECT_THROW(stage.run("a"), int);
  stage.run("b");
  EXPECT_THAT(pieces, ElementsAre("a", "b"));
  EXPECT_EQ(raisedBy([] { (void)KorTemplateCallbackStream::streamWithCallback(nullptr); }),
            failedCheck("callback != nil"));
}

TEST(ACallbackStream, MayBeWrittenToByItsCallback) {
  std::vector<std::string> pieces;
  Ref<KorTemplateCallbackStream> stream;
  stream = KorTemplateCallbackStream::streamWithCallback(
      [&](std::string_view text) {
        pieces.emplace_back(text);
        if (text == "ab") stream->write("!");
      },
      2);
  const StreamStage stage(stream);
  stage.run("a<?= \"b\" ?><?= \"cdef\" ?>g");
  EXPECT_THAT(pieces, ElementsAre("ab", "!cdef", "g"));
  stage.environment->setOutputStream(nullptr);
}

TEST(AStringStreamOverAHostsString, AppendsWhenItIsFlushed) {
  std::string text = "> ";
  const StreamStage stage(KorTemplateStringStream::stringStreamAppendingTo(text));
  std::string before;
  stage.errors->onWrite = [&](const Text&) { before = text; };
  stage.define("look", [&](auto&&...) -> Value { return "[" + text + "]"; });
  stage.run("a<?= look() ?><? boom() ?>b");
  EXPECT_EQ(before, "> a[> ]");
  EXPECT_EQ(text, "> a[> ]b");
  EXPECT_NE(raisedBy([&] { stage.run("c<? 1 / 0 ?>d"); }), "nothing");
  EXPECT_THROW(stage.run("e<? foreign() ?>f"), int);
  EXPECT_EQ(text, "> a[> ]bce");
}

TEST(StreamsOfTheLibrary, RefuseAnAbsentText) {
  const Pipe pipe;
  std::ostringstream out;
  Pieces pieces;
  std::string text;
  const Ref<KorTemplateStream> streams[] = {
      KorTemplateFileDescriptorStream::streamWithDescriptor(pipe.writer()),
      KorTemplateOStreamStream::streamWithOStream(out),
      pieces.stream(),
      KorTemplateStringStream::stringStreamAppendingTo(text),
  };
  for (const Ref<KorTemplateStream>& stream : streams) {
    const Stage stage;
    stage.environment->setOutputStream(stream);
    const std::string raised = raisedBy([&] {
      templateOf({output("a"), output(nothing())})->executeWithEnvironment(stage.get());
    });
    EXPECT_TRUE(raised.starts_with("NSInvalidArgumentException: An absent text cannot be ")) << stream->className();
  }
  EXPECT_EQ(pipe.readSoFar() + out.str() + pieces.list.at(0) + text, "aaaa");
}

TEST(AMutableString, IsEmptiedKeepingItsMemory) {
  const Ref<NSMutableString> string = NSMutableString::mutableString();
  string->appendString(std::string(1000, 'a'));
  const char* const memory = string->string().data();
  string->clear();
  EXPECT_EQ(string->string(), "");
  EXPECT_GE(string->mutableText().capacity(), 1000U);
  string->appendString("b");
  EXPECT_EQ(string->string(), "b");
  EXPECT_EQ(string->string().data(), memory);
}

TEST(ACallbackStream, MayGatherEverythingUntilItIsFlushed) {
  std::vector<std::string> pieces;
  const auto stream = KorTemplateCallbackStream::streamWithCallback(
      [&](std::string_view piece) { pieces.emplace_back(piece); }, std::numeric_limits<std::size_t>::max());
  stream->write("a");
  stream->write(std::string(100'000, 'b'));
  EXPECT_THAT(pieces, IsEmpty());
  stream->flush();
  EXPECT_THAT(pieces, ElementsAre("a" + std::string(100'000, 'b')));
}

}  // namespace

}  // namespace tavlo::test
