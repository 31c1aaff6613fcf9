// What a hand feels in the desk: the time from a handle that is moved to the picture of its new place on the screen,
// and how many pictures a drag shows in a second. The window is the program's own, drawn without a screen; the pen's
// events come as from a mouse. The frame is as large as said, the window shows it fitted.
#include "hosts/desk/viewer.h"
#include "hosts/desk/window.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QTemporaryDir>

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace {

using desk::Viewer;
using desk::Window;

constexpr int patience = 8000;  // milliseconds

// Tells when a picture is on the screen, which is when the viewer has been painted with it.
class Screen : public QObject {
public:
    explicit Screen(Viewer* viewer) : QObject(viewer), viewer_(viewer) { viewer->installEventFilter(this); }
    int pictures = 0;

private:
    bool eventFilter(QObject*, QEvent* event) override {
        const qint64 key = viewer_->picture().result.cacheKey();
        if (event->type() == QEvent::Paint && key != painted_ && !viewer_->picture().result.isNull()) {
            painted_ = key;
            pictures++;
        }
        return false;
    }
    Viewer* viewer_;
    qint64 painted_ = 0;
};

template <class Condition>
bool wait_for(Condition condition) {
    QElapsedTimer since;
    since.start();
    while (!condition()) {
        if (since.elapsed() > patience) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

void rest(int milliseconds) {
    QElapsedTimer since;
    since.start();
    while (since.elapsed() < milliseconds) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

struct Session {
    Session(int width, int height, const char* formula) {
        setenv("XDG_DATA_HOME", directory.path().toUtf8().constData(), 1);
        const QString plate = directory.filePath("plate.png"), text = directory.filePath("drag.text");
        QImage image(width, height, QImage::Format_RGB888);
        unsigned seed = 1;
        for (int y = 0; y < height; y++)
            for (int x = 0; x < 3 * width; x++)
                image.scanLine(y)[x] = static_cast<unsigned char>(((seed = seed * 1664525u + 1013904223u) >> 26) +
                                                                  static_cast<unsigned>((x + y) % 190));
        image.save(plate, nullptr, 90);
        std::ofstream(text.toStdString()) << "(def_effect Drag (Source) ()\n"
                                             "  place = [0.2 0.1] (min -8 max 8 widget center.center)\n  dest = "
                                          << formula << "\n)\n";
        window = std::make_unique<Window>();
        window->show();
        window->begin({text, plate}, {});
        viewer = window->findChild<Viewer*>("viewer");
        screen = new Screen(viewer);
        ready = wait_for([&] { return viewer->picture().settled && !viewer->picture().result.isNull(); });
        for (QCheckBox* const box : window->findChildren<QCheckBox*>())
            if (box->text().contains("Widget") && !box->text().contains("Crop") && !box->isChecked()) box->click();
        ready = ready && wait_for([&] { return !viewer->picture().handles.isNull(); });
        rest(500);
        place = viewer->place_of(QPointF(width * 0.6, height * 0.5 + width * 0.05));
    }
    void pen(QEvent::Type type, QPointF at) {
        const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        const Qt::MouseButton held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, at, viewer->mapToGlobal(at), button, held, Qt::NoModifier);
        QCoreApplication::sendEvent(viewer, &event);
    }
    // Far enough for another pixel of the frame at any size.
    QPointF next() {
        moves++;
        return place + QPointF(4 * (moves % 25), 2 * (moves % 40));
    }

    QTemporaryDir directory;
    std::unique_ptr<Window> window;
    Viewer* viewer = nullptr;
    Screen* screen = nullptr;
    QPointF place;
    int moves = 0;
    bool ready = false;
};

constexpr const char* grade = "(+ (* Source (+ 0.6 (* 0.4 (mag place)))) [0.02 0 -0.02])";
constexpr const char* blurred = "(blur Source (+ 0.01 (* 0.1 (mag place))) 2 1 1)";

void from_handle_to_screen(benchmark::State& state, const char* formula) {
    Session session(1920, 1080, formula);
    if (!session.ready) return state.SkipWithError("no picture came");
    session.pen(QEvent::MouseButtonPress, session.place);
    rest(300);
    int coarsest = 1;
    for (auto _ : state) {
        rest(10);  // what came last is past
        const int before = session.screen->pictures;
        QElapsedTimer since;
        since.start();
        session.pen(QEvent::MouseMove, session.next());
        if (!wait_for([&] { return session.screen->pictures > before; })) {
            state.SkipWithError("no picture came");
            break;
        }
        state.SetIterationTime(static_cast<double>(since.nsecsElapsed()) * 1e-9);
        coarsest = std::max(coarsest, session.viewer->picture().resolution);
    }
    session.pen(QEvent::MouseButtonRelease, session.place);
    state.counters["resolution_1_in"] = coarsest;
}
BENCHMARK_CAPTURE(from_handle_to_screen, grade, grade)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(60);
BENCHMARK_CAPTURE(from_handle_to_screen, blur, blurred)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(60);

void drag(benchmark::State& state, const char* formula, int width, int height) {
    Session session(width, height, formula);
    if (!session.ready) return state.SkipWithError("no picture came");
    constexpr int hand = 5;  // milliseconds between two events of a mouse
    int coarsest = 1, shown = 0;
    double seconds = 0;
    session.pen(QEvent::MouseButtonPress, session.place);
    for (auto _ : state) {
        const int before = session.screen->pictures;
        QElapsedTimer since;
        since.start();
        while (since.elapsed() < 2000) {
            session.pen(QEvent::MouseMove, session.next());
            rest(hand);
            coarsest = std::max(coarsest, session.viewer->picture().resolution);
        }
        shown += session.screen->pictures - before;
        seconds += static_cast<double>(since.nsecsElapsed()) * 1e-9;
    }
    session.pen(QEvent::MouseButtonRelease, session.place);
    state.counters["pictures_a_second"] = shown / seconds;
    state.counters["resolution_1_in"] = coarsest;
}
BENCHMARK_CAPTURE(drag, grade_1920x1080, grade, 1920, 1080)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(drag, grade_3840x2160, grade, 3840, 2160)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(drag, blur_3840x2160, blurred, 3840, 2160)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication application(argc, argv);
    QApplication::setApplicationName("velloran-desk");
    std::setlocale(LC_ALL, "C");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
