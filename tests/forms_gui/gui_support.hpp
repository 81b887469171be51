// Helpers of the GUI tests: waiting for the event loop, pixel colours and
// screenshots saved as test artifacts under the build tree.
#pragma once

#include <gtest/gtest.h>

#include <QColor>
#include <QDir>
#include <QImage>
#include <QTest>
#include <QWidget>
#include <string>

namespace kestrel::qt::testing {

// Runs the event loop until `condition` holds; false if it never does (a
// generous limit: the tests assert order, never durations).
template <class F>
bool WaitFor(F&& condition) {
  return QTest::qWaitFor(std::forward<F>(condition), 10000);
}

inline QImage Screenshot(QWidget& widget, const char* name) {
  QImage image = widget.grab().toImage();
  QDir().mkpath(KESTREL_ARTIFACT_DIR);
  const QString path = QString(KESTREL_ARTIFACT_DIR) + "/" + name + ".png";
  EXPECT_TRUE(image.save(path)) << path.toStdString();
  return image;
}

// Whether some pixel has every channel within `tolerance` of `colour`
// (anti-aliased text reaches its full colour only here and there).
inline bool HasPixelNear(const QImage& image, const QColor& colour, int tolerance) {
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      QColor c = image.pixelColor(x, y);
      if (std::abs(c.red() - colour.red()) <= tolerance &&
          std::abs(c.green() - colour.green()) <= tolerance &&
          std::abs(c.blue() - colour.blue()) <= tolerance)
        return true;
    }
  return false;
}

}  // namespace kestrel::qt::testing
