// The GUI tests' main: one QApplication for the whole run (on whatever
// platform QT_QPA_PLATFORM names; CTest sets "offscreen"). Listing the tests
// needs no application, so discovery at build time works without a display.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  QApplication app(argc, argv);
  return RUN_ALL_TESTS();
}
