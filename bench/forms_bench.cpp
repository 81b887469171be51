// One layout pass of FormResizer over 100 anchored controls on the Qt
// adapters, against the same geometry set directly on the widgets (what a
// hand-written resize handler does). Both resize the form between two widths
// each iteration so that every pass really moves every control, and both end
// with one event-pump call, as the resizer's pass does. A drag feels smooth
// while a pass stays well under a millisecond.
//   build/default/bench/forms_bench        (offscreen unless QT_QPA_PLATFORM says otherwise)
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QLabel>
#include <QWidget>
#include <memory>
#include <vector>

#include "kestrel/forms/form_resizer.hpp"
#include "kestrel/qt/widgets.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr int kControls = 100;
constexpr int kColumns = 10;

// Styles cycled over the controls: every branch of the pass is taken.
constexpr int32_t kStyles[] = {
    kestrel::forms::AnchorStyleTop + kestrel::forms::AnchorStyleBottom +
        kestrel::forms::AnchorStyleLeft + kestrel::forms::AnchorStyleRight,
    kestrel::forms::AnchorStyleBottom + kestrel::forms::AnchorStyleRight,
    kestrel::forms::AnchorStyleTop + kestrel::forms::AnchorStyleRight,
    kestrel::forms::AnchorStyleBottom + kestrel::forms::AnchorStyleLeft,
    kestrel::forms::AnchorStyleCenterHorizontally + kestrel::forms::AnchorStyleTop,
};

struct Form {
  std::unique_ptr<QWidget> window = std::make_unique<QWidget>();
  std::vector<QWidget*> controls;
  Form() {
    window->resize(800, 600);
    for (int i = 0; i < kControls; ++i) {
      auto* label = new QLabel(window.get());
      label->setObjectName(QString("c%1").arg(i));
      label->setGeometry(10 + (i % kColumns) * 70, 10 + (i / kColumns) * 50, 60, 40);
      controls.push_back(label);
    }
    window->show();
    QCoreApplication::processEvents();
  }
  int Width(int64_t iteration) const { return iteration % 2 == 0 ? 900 : 840; }
};

void LayoutKestrel(benchmark::State& state) {
  Form form;
  auto resizer = kestrel::MakeRef<kestrel::forms::FormResizer>();
  resizer->Attach(kestrel::qt::AdapterFor(form.window.get()));
  for (int i = 0; i < kControls; ++i) {
    resizer->Anchor(kestrel::Value(int32_t(i + 1)))->SetAnchorStyle(kStyles[i % 5]);
  }
  int64_t n = 0;
  for (auto _ : state) {
    form.window->resize(form.Width(n++), 650);
    resizer->Update();
  }
}

void LayoutDirect(benchmark::State& state) {
  Form form;
  std::vector<QRect> reference;
  for (QWidget* c : form.controls) reference.push_back(c->geometry());
  const QSize base = form.window->size();
  int64_t n = 0;
  for (auto _ : state) {
    form.window->resize(form.Width(n++), 650);
    const int grow_x = form.window->width() - base.width();
    const int grow_y = form.window->height() - base.height();
    for (int i = 0; i < kControls; ++i) {
      QRect r = reference[size_t(i)];
      switch (i % 5) {
        case 0:
          r.adjust(0, 0, grow_x, grow_y);
          break;
        case 1:
          r.translate(grow_x, grow_y);
          break;
        case 2:
          r.translate(grow_x, 0);
          break;
        case 3:
          r.translate(0, grow_y);
          break;
        case 4:
          r.moveLeft((form.window->width() - r.width()) / 2);
          break;
      }
      form.controls[size_t(i)]->setGeometry(r);
    }
    QCoreApplication::processEvents();
  }
}

void Repeated(benchmark::internal::Benchmark* b) {
  b->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(LayoutKestrel)->Name("Layout100Controls/kestrel")->Apply(Repeated);
BENCHMARK(LayoutDirect)->Name("Layout100Controls/qt_direct")->Apply(Repeated);

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  return kestrel::bench::RunWithRatios(argc, argv);
}
