// A window that a test uses as a person does: with mouse and keyboard, judged by what it shows.
#pragma once

#include "hosts/desk/value_field.h"
#include "hosts/desk/viewer.h"
#include "hosts/desk/window.h"

#include <gtest/gtest.h>

#include <QtTest/QtTest>
#include <QtWidgets/QtWidgets>

#include <cstdlib>
#include <fstream>

namespace desk_test {

using desk::ValueField;
using desk::Viewer;
using desk::Window;

#ifdef VELLORAN_SANITIZED
constexpr int patience = 120000;  // milliseconds
#else
constexpr int patience = 20000;
#endif

#define ASSERT_SOON(condition) ASSERT_TRUE(QTest::qWaitFor([&] { return (condition); }, patience)) << #condition

// A plate whose pixels all differ, and numbered copies of it.
inline QImage plate(int seed = 0) {
    QImage image(96, 64, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); y++)
        for (int x = 0; x < image.width(); x++) image.setPixel(x, y, qRgb(40 + 2 * x, 30 + 3 * y, 90 + seed + x - y));
    return image;
}

inline int differing_pixels(const QImage& a, const QImage& b) {
    if (a.size() != b.size()) return -1;
    int n = 0;
    for (int y = 0; y < a.height(); y++)
        for (int x = 0; x < a.width(); x++) n += a.pixel(x, y) != b.pixel(x, y);
    return n;
}

class Desk : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (QApplication::instance()) return;
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        static int argc = 1;
        static char name[] = "desk_test";
        static char* argv[] = {name, nullptr};
        new QApplication(argc, argv);
        QApplication::setApplicationName("velloran-desk");
        QApplication::setQuitOnLastWindowClosed(false);
        std::setlocale(LC_ALL, "C");
    }
    static void TearDownTestSuite() { delete qApp; }

    void SetUp() override {
        ASSERT_TRUE(directory_.isValid());
        // A program that is killed and the one that comes after share their data.
        const char* const given = std::getenv("DESK_TEST_DATA");
        data_ = given ? QString(given) : directory_.path();
        setenv("XDG_DATA_HOME", data_.toUtf8().constData(), 1);
        plate_ = directory_.filePath("plate.png");
        ASSERT_TRUE(plate().save(plate_));
    }

    void open(const QStringList& words, const QString& setup = {}, const QString& look = {}) {
        window_ = std::make_unique<Window>();
        window_->show();
        window_->begin(words, setup, look);
        ASSERT_SOON(has_picture());
    }
    void open_grade() { open({"color:Grade", plate_}); }

    template <class T>
    T* find(const QString& name) {
        return window_->findChild<T*>(name);
    }
    Viewer* viewer() { return find<Viewer>("viewer"); }
    const QImage& result() { return viewer()->picture().result; }
    bool has_picture() { return viewer()->picture().settled && !result().isNull(); }
    bool settled() { return viewer()->picture().settled; }
    // The field of a param with one value.
    ValueField* field(const QString& param) {
        for (ValueField* const one : window_->findChildren<ValueField*>())
            if (one->objectName().startsWith(param)) return one;
        return nullptr;
    }
    float value(const QString& param) { return field(param)->value(); }
    QListWidget* history() { return find<QListWidget>("history"); }
    QString message() { return find<QLabel>("message")->text(); }

    void type_value(const QString& param, const QString& text) {
        ValueField* const at = field(param);
        ASSERT_NE(at, nullptr) << param.toStdString();
        QTest::mouseClick(at, Qt::LeftButton, {}, QPoint(at->width() - 10, at->height() / 2));
        auto* const editor = at->findChild<QLineEdit*>("typed value");
        ASSERT_NE(editor, nullptr);
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
    }
    static void move(QWidget* at, QPointF place, Qt::MouseButton held = Qt::NoButton) {
        QMouseEvent event(QEvent::MouseMove, place, at->mapToGlobal(place), Qt::NoButton, held, Qt::NoModifier);
        QApplication::sendEvent(at, &event);
    }
    static void drag(QWidget* at, QPoint from, QPoint to, int steps, Qt::MouseButton button = Qt::LeftButton) {
        QTest::mousePress(at, button, {}, from);
        for (int i = 1; i <= steps; i++) {
            move(at, from + (to - from) * i / steps, button);
            QTest::qWait(1);
        }
        QTest::mouseRelease(at, button, {}, to);
    }
    static void click_item(QListWidget* list, QListWidgetItem* item) {
        list->scrollToItem(item);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(item).center());
    }
    // The first item whose words begin so.
    QListWidgetItem* item(const QString& list, const QString& words) {
        for (int i = 0; i < find<QListWidget>(list)->count(); i++)
            if (find<QListWidget>(list)->item(i)->text().startsWith(words)) return find<QListWidget>(list)->item(i);
        return nullptr;
    }
    // What the command line says to it.
    static int run_program(const QStringList& words) {
        QProcess program;
        program.start(VELLORAN_PROGRAM, words);
        return program.waitForFinished(patience) && program.exitStatus() == QProcess::NormalExit ? program.exitCode()
                                                                                                 : -1;
    }
    // Whether the picture that is shown is that of a file.
    bool shows(const QString& file) {
        return settled() && !result().isNull() &&
               differing_pixels(result(), QImage(file).convertToFormat(QImage::Format_RGB32)) == 0;
    }
    static void drag(QWidget* at, int from, int to, int steps) {
        drag(at, {from, at->height() / 2}, {to, at->height() / 2}, steps);
    }
    void shortcut(const QKeySequence& keys) {
        for (QAction* const action : window_->findChildren<QAction*>())
            if (action->shortcuts().contains(keys)) return action->trigger();
        FAIL() << keys.toString().toStdString();
    }
    // Until nothing has come for a while.
    void wait_for_rest(int milliseconds = 500) {
        for (QImage before; before != result() || !settled();) {
            before = result();
            QTest::qWait(milliseconds);
        }
    }
    void drop(const QString& path, Qt::KeyboardModifiers held = Qt::NoModifier) {
        QMimeData files;
        files.setUrls({QUrl::fromLocalFile(path)});
        QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, &files, Qt::LeftButton, held);
        QApplication::sendEvent(window_.get(), &enter);
        QDropEvent event(QPointF(100, 100), Qt::CopyAction, &files, Qt::LeftButton, held);
        QApplication::sendEvent(window_.get(), &event);
    }
    // Runs the next file dialog as if a person typed the path.
    void answer_dialog(const QString& path) {
        QTimer::singleShot(0, [path] {
            for (int i = 0; i < 500; i++) {
                auto* const dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
                if (!dialog) {
                    QTest::qWait(10);
                    continue;
                }
                auto* const line = dialog->findChild<QLineEdit*>("fileNameEdit");
                line->setText(path);
                const auto buttons = dialog->findChild<QDialogButtonBox*>()->buttons();
                return QTest::mouseClick(buttons.first(), Qt::LeftButton);
            }
        });
    }

    QTemporaryDir directory_;
    QString data_, plate_;
    std::unique_ptr<Window> window_;
};

}  // namespace desk_test
