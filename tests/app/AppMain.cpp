// The app's tests need one QApplication for the whole run, made before any widget.
#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  // No display needed, also when CTest lists the tests; a caller may still choose another.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
