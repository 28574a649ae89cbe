#include <gtest/gtest.h>

#include "fixture/Faults.h"
#include "ixocamglue/support/Format.h"

namespace ixocamglue::test {
namespace {

TEST(Formatting, KeepsSpellingWhateverTheLength) {
  EXPECT_EQ(Format("%d/%d: %s", 2, 5, "等开光闸完毕"), "2/5: 等开光闸完毕");
  for (const std::size_t length : {0u, 63u, 64u, 65u, 5000u}) {
    const std::string text(length, 'x');
    EXPECT_EQ(Format("[%s]", text.c_str()), "[" + text + "]");
  }
}

TEST(Formatting, ATranslationThatTakesOtherArgumentsIsNotTheSame) {
  struct TCase {
    const char* Default;
    const char* Translated;
    bool Same;
  };
  for (const auto& [defText, translated, same] : {
           TCase{"%d/%d: ", "%d of %d: ", true},
           TCase{"100%% %s", "%s (100%%)", true},
           TCase{"%.2f bar", "%8.3f bar", true},
           TCase{"%d", "%s", false},
           TCase{"%s", "%s %s", false},
           TCase{"%s %d", "%d %s", false},
           TCase{"%d", "%ld", false},
           TCase{"%d", "%*d", false},
           TCase{"text", "50%", false},
           TCase{"text", "%n", false},
           TCase{"%u", "%d", false},
       })
    EXPECT_EQ(SameConversions(defText, translated), same) << defText << " | " << translated;
}

TEST(Faults, EveryActionIsTriedAndTheFirstFailureIsTold) {
  std::string done;
  TTryAll tryAll;
  tryAll([&] { done += 'a'; })([&] { throw std::runtime_error("first"); })([&] { throw std::runtime_error("second"); });
  tryAll([&] { done += 'b'; });
  EXPECT_EQ(done, "ab");
  try {
    tryAll.Rethrow();
    FAIL();
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "first");
  }
}

TEST(Faults, AHandlerThatThrowsDoesNotDisturbTheReporter) {
  const TFaultHandler previous = SetFaultHandler([](std::string_view) { throw std::runtime_error("handler"); });
  EXPECT_EQ(FaultOr(7, "text"), 7);
  SetFaultHandler(previous);
}

}  // namespace
}  // namespace ixocamglue::test
