// The GUI tests' main: one QApplication for the whole run (on whatever
// platform QT_QPA_PLATFORM names; CTest sets "offscreen"). Listing the tests
// needs no application, so discovery at build time works without a display.
#include <gtest/gtest.h>

#include <QApplication>
#include <cstring>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}

// Under LeakSanitizer: leaks inside Qt's own start-up (fontconfig, the
// platform plugin) are listed, narrowly, in this file's neighbour.
#if defined(KESTREL_LSAN_SUPPRESSIONS)
extern "C" const char* __lsan_default_options() {
  return "suppressions=" KESTREL_LSAN_SUPPRESSIONS;
}
#endif
