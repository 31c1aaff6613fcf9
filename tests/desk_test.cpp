// The desk as a person uses it.
#include "hosts/common/library_call.h"
#include "hosts/desk/arithmetic.h"
#include "hosts/desk/curve_editor.h"
#include "hosts/desk/history.h"
#include "hosts/desk/output_dock.h"
#include "hosts/desk/panel.h"
#include "hosts/desk/text_dock.h"
#include "tests/desk_test_window.h"

#include <csignal>
#include <random>

namespace desk_test {
namespace {

TEST_F(Desk, ValuesAreTypedDraggedAndSteppedAndEachIsOneStepOfTheHistory) {
    open_grade();
    const QImage before = result();
    ASSERT_EQ(before.size(), QSize(96, 64));
    EXPECT_EQ(before.pixel(5, 7), plate().pixel(5, 7));

    type_value("exposure", "1");
    ASSERT_SOON(settled() && result() != before);
    // One stop is twice the light.
    EXPECT_NEAR(qRed(result().pixel(5, 7)), 2 * qRed(before.pixel(5, 7)), 2);
    ASSERT_SOON(history()->count() == 2);
    EXPECT_EQ(history()->item(1)->text(), "exposure 1");

    type_value("exposure", "*2");  // goes on from what stands there
    ASSERT_SOON(history()->count() == 3);
    EXPECT_FLOAT_EQ(value("exposure"), 2);
    type_value("exposure", "1/0");
    type_value("exposure", "no number");
    EXPECT_FLOAT_EQ(value("exposure"), 2);

    drag(field("exposure"), 20, 90, 12);
    ASSERT_SOON(history()->count() == 4);
    const float dragged = value("exposure");
    EXPECT_GT(dragged, 2);

    // Digits and points typed over a field are no shortcuts of the window.
    window_->activateWindow();
    field("exposure")->setFocus();
    QTest::keyClicks(field("exposure"), "2");
    auto* const typed = field("exposure")->findChild<QLineEdit*>("typed value");
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(viewer()->mode(), Viewer::Mode::result);
    QTest::keyClick(typed, Qt::Key_Escape);

    QTest::keyClick(field("exposure"), Qt::Key_Up);
    ASSERT_SOON(history()->count() == 5);
    EXPECT_NEAR(value("exposure"), dragged + 0.05, 1e-4);
    QTest::keyClick(field("exposure"), Qt::Key_Delete);
    ASSERT_SOON(value("exposure") == 0 && settled() && result() == before);
}

TEST_F(Desk, WhatIsTypedOverAPopupLooksForAnEntryOfItAndIsNoShortcut) {
    open({"color:Channel_Shuffle", plate_});
    QComboBox* popup = nullptr;
    for (auto* const one : window_->findChildren<QComboBox*>())
        if (one->objectName().startsWith("green_from")) popup = one;
    ASSERT_NE(popup, nullptr);
    window_->activateWindow();
    popup->setFocus();
    QTest::keyClick(popup, popup->itemText(2)[0].toLatin1());
    EXPECT_EQ(popup->currentIndex(), 2);
    QTest::keyClick(popup, Qt::Key_2);
    EXPECT_EQ(viewer()->mode(), Viewer::Mode::result);
    ASSERT_SOON(history()->count() == 2 && settled());
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(popup->currentIndex() == 1);
    // Over anything else the digits choose views.
    viewer()->setFocus();
    QTest::keyClick(viewer(), Qt::Key_2);
    EXPECT_EQ(viewer()->mode(), Viewer::Mode::input);
}

TEST_F(Desk, EverythingIsUndoneAndDoneAgain) {
    open_grade();
    const QImage before = result();
    type_value("exposure", "0.5");
    type_value("contrast", "1.3");
    drag(field("saturation"), 20, 60, 6);
    type_value("lift", "0.1");
    ASSERT_SOON(history()->count() == 5 && settled());
    const QImage after = result();
    for (int i = 0; i < 4; i++) shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(settled() && result() == before);
    EXPECT_EQ(value("exposure"), 0);
    EXPECT_EQ(history()->currentRow(), 0);
    for (int i = 0; i < 4; i++) shortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
    ASSERT_SOON(settled() && result() == after);
    EXPECT_FLOAT_EQ(value("contrast"), 1.3f);

    // A click leads anywhere, and what was undone stays when something else is done.
    QTest::mouseClick(history()->viewport(), Qt::LeftButton, {},
                      history()->visualItemRect(history()->item(1)).center());
    ASSERT_SOON(value("contrast") == 1);
    type_value("pivot", "0.2");
    ASSERT_SOON(history()->count() == 6);
    EXPECT_FLOAT_EQ(value("exposure"), 0.5f);
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(history()->currentRow() == 1 && std::abs(value("pivot") - 0.435f) < 1e-3);
}

TEST_F(Desk, KeysMakeACurveThatTheFrameLineFollows) {
    open_grade();
    find<QSpinBox>("length")->setValue(11);
    ASSERT_SOON(find<QSpinBox>("frame number")->maximum() == 11 && has_picture());
    QTest::keyClick(field("exposure"), Qt::Key_K);
    ASSERT_SOON(history()->count() == 3);
    find<QSpinBox>("frame number")->setValue(11);
    ASSERT_SOON(viewer()->picture().frame == 10);
    type_value("exposure", "2");  // sets a key, since there is a curve
    ASSERT_SOON(history()->count() == 4);
    find<QSpinBox>("frame number")->setValue(6);
    ASSERT_SOON(viewer()->picture().frame == 5 && settled() && std::abs(value("exposure") - 1) < 1e-4);
    QTest::keyClick(field("exposure"), Qt::Key_BracketRight);
    ASSERT_SOON(viewer()->picture().frame == 10);
    QTest::keyClick(field("exposure"), Qt::Key_K, Qt::ShiftModifier);
    find<QSpinBox>("frame number")->setValue(6);
    ASSERT_SOON(viewer()->picture().frame == 5 && settled() && value("exposure") == 0);
}

TEST_F(Desk, KeysAreDraggedAddedAndDeletedOnTheDrawnCurve) {
    open_grade();
    find<QSpinBox>("length")->setValue(11);
    ASSERT_SOON(find<QSpinBox>("frame number")->maximum() == 11 && has_picture());
    shortcut(Qt::CTRL | Qt::Key_7);
    auto* const curve = find<desk::CurveView>("curve view");
    type_value("exposure", "1");
    ASSERT_SOON(history()->count() == 3);
    QTest::mouseClick(find<QToolButton>("set key"), Qt::LeftButton);
    ASSERT_SOON(history()->count() == 4);
    find<QSpinBox>("frame number")->setValue(11);
    ASSERT_SOON(viewer()->picture().frame == 10);
    type_value("exposure", "3");
    ASSERT_SOON(history()->count() == 5 && settled());

    // The last key to frame 6 and the value in the middle: one step, and the frame line is there when it is asked for.
    const QPoint from = curve->place_of(11, 3).toPoint(), to = curve->place_of(6, 2).toPoint();
    drag(curve, from, to, 6);
    ASSERT_SOON(history()->count() == 6 && settled());
    wait_for_rest();
    EXPECT_EQ(history()->count(), 6);
    EXPECT_NEAR(value("exposure"), 2, 0.05) << "behind the last key its value stays";
    const float middle = value("exposure");
    QTest::mouseClick(find<QToolButton>("previous key"), Qt::LeftButton);
    ASSERT_SOON(viewer()->picture().frame == 5 && value("exposure") == middle);
    QTest::mouseClick(find<QToolButton>("previous key"), Qt::LeftButton);
    ASSERT_SOON(viewer()->picture().frame == 0 && value("exposure") == 1);

    QTest::mouseDClick(curve, Qt::LeftButton, {}, curve->place_of(3, 2).toPoint());
    ASSERT_SOON(history()->count() == 7);
    find<QSpinBox>("frame number")->setValue(3);
    ASSERT_SOON(viewer()->picture().frame == 2 && std::abs(value("exposure") - 2) < 0.06 && settled());
    QTest::keyClick(curve, Qt::Key_Delete);
    ASSERT_SOON(history()->count() == 8 && std::abs(value("exposure") - (1 + 0.4f * (middle - 1))) < 1e-3);
    QTest::mouseClick(find<QToolButton>("smooth"), Qt::LeftButton);
    // Between two keys a smooth piece begins and ends level.
    ASSERT_SOON(std::abs(value("exposure") - (1 + 0.352f * (middle - 1))) < 1e-3);
    for (int i = 0; i < 6; i++) shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(history()->currentRow() == 2 && value("exposure") == 1 && settled());
}

TEST_F(Desk, TheViewerShowsInputAndResultAndTellsTheirValues) {
    open({"color:Invert", plate_});
    auto* const view = viewer();
    QTest::keyClick(view, Qt::Key_Plus);
    const QPoint place = view->place_of(QPointF(30.5, 20.5)).toPoint();
    QTest::mouseMove(view, place);
    QMouseEvent move(QEvent::MouseMove, QPointF(place), view->mapToGlobal(QPointF(place)), Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QApplication::sendEvent(view, &move);
    const QRgb pixel = plate().pixel(30, 63 - 20);
    const QString in = QString::number(qRed(pixel)), out = QString::number(255 - qRed(pixel));
    const auto* const probe = find<QLabel>("probe");
    ASSERT_SOON(probe->text().contains(">" + in + "<") && probe->text().contains(">" + out + "<"));
    EXPECT_TRUE(probe->text().contains("30, 20")) << probe->text().toStdString();

    for (const char* const mode : {"view Input", "view Wipe", "view Both"}) {
        QTest::mouseClick(find<QToolButton>(mode), Qt::LeftButton);
        ASSERT_SOON(!view->picture().input.isNull());
        EXPECT_EQ(view->picture().input.pixel(0, 0), plate().pixel(view->picture().area.topLeft())) << mode;
    }
    QTest::mouseClick(find<QToolButton>("view Result"), Qt::LeftButton);
    ASSERT_SOON(view->picture().input.isNull() && has_picture());
    EXPECT_EQ(view->picture().result.pixel(0, 0), 0xff000000u | ~plate().pixel(view->picture().area.topLeft()));
}

TEST_F(Desk, ASetupIsSavedAndLoadedAgainAndTheCommandMakesTheSamePicture) {
    open_grade();
    type_value("exposure", "0.7");
    type_value("gain", "1.2");
    ASSERT_SOON(history()->count() == 3 && settled());
    const QImage wanted = result();
    const QString setup = directory_.filePath("warm.setup");
    answer_dialog(setup);
    shortcut(QKeySequence::Save);
    ASSERT_SOON(QFileInfo::exists(setup) && message().contains("Saved"));

    find<QLineEdit>("output path")->setText(directory_.filePath("out.png"));
    QTest::mouseClick(find<QPushButton>("copy command"), Qt::LeftButton);
    ASSERT_SOON(QApplication::clipboard()->text().startsWith("velloran render color:Grade"));
    const QString line = QApplication::clipboard()->text();
    QProcess shell;
    shell.start("/bin/sh", {"-c", QString(VELLORAN_PROGRAM) + line.mid(8)});
    ASSERT_TRUE(shell.waitForFinished(patience));
    ASSERT_EQ(shell.exitCode(), 0) << line.toStdString() << shell.readAllStandardError().toStdString();
    const QImage made = QImage(directory_.filePath("out.png")).convertToFormat(QImage::Format_RGB32);
    EXPECT_EQ(differing_pixels(made, wanted), 0) << line.toStdString();

    window_ = nullptr;
    open({"color:Grade", plate_}, setup);
    ASSERT_SOON(std::abs(value("exposure") - 0.7f) < 1e-5 && settled() && result() == wanted);
}

// A picture that the command line made brings its effect and values, where it is not meant as a picture.
TEST_F(Desk, APictureThatSaysHowItWasMadeOpensEffectAndValues) {
    const QString path = directory_.filePath("own.text"), made = directory_.filePath("made.png"),
                  own = directory_.filePath("own.png");
    std::ofstream(path.toStdString()) << "(def_effect Own (Source) ()\n  amount = 0.5 (min 0 max 1 step 0.01)\n"
                                         "  dest = (* Source amount)\n)\n";
    const auto render = [&](const QStringList& words) {
        return run_program(QStringList{"render"} + words + QStringList{"-i", plate_});
    };
    ASSERT_EQ(render({"color:Grade", "-o", made, "-p", "exposure=0.7"}), 0);
    ASSERT_EQ(render({path, "-o", own, "-p", "amount=0.25"}), 0);
    ASSERT_TRUE(QFile::remove(path)) << "the picture keeps the text";
    open({"color:Invert", plate_});
    drop(made);
    ASSERT_SOON(field("exposure") != nullptr && std::abs(value("exposure") - 0.7f) < 1e-5 && shows(made));
    EXPECT_EQ(history()->count(), 2);
    drop(own);
    ASSERT_SOON(field("amount") != nullptr && value("amount") == 0.25f && shows(own));
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(field("exposure") != nullptr && shows(made));
    // With Shift it is a picture like others; so is one that does not say.
    drop(own, Qt::ShiftModifier);
    ASSERT_SOON(find<QComboBox>("shown input")->itemText(0).contains("own.png"));
    drop(plate_);
    ASSERT_SOON(find<QComboBox>("shown input")->itemText(0).contains("plate.png") && shows(made));

    window_ = nullptr;
    open({made, plate_});
    ASSERT_SOON(field("exposure") != nullptr && std::abs(value("exposure") - 0.7f) < 1e-5 && shows(made));
    window_ = nullptr;
    open({plate_});
    ASSERT_SOON(field("exposure") != nullptr && value("exposure") == 0 && shows(plate_));
}

TEST_F(Desk, ATextIsTriedWhileItIsTypedAndMistakesAreShownAtTheirPlace) {
    const QString path = directory_.filePath("mine.text");
    std::ofstream(path.toStdString()) << "(def_effect Mine (Source) ()\n"
                                         "  amount = 0.5 (min 0 max 1 step 0.01)\n"
                                         "  dest = (* Source amount)\n"
                                         ")\n";
    open({path, plate_});
    const QRgb half = result().pixel(40, 40);
    type_value("amount", "1");
    ASSERT_SOON(settled() && result().pixel(40, 40) != half);
    auto* const editor = find<desk::TextEditor>("text");
    auto* const messages = find<QListWidget>("text messages");
    ASSERT_TRUE(editor->toPlainText().contains("(* Source amount)"));

    const auto put_caret = [&](const QString& word) {
        QTextCursor cursor = editor->document()->find(word);
        ASSERT_FALSE(cursor.isNull());
        cursor.setPosition(cursor.selectionStart());
        editor->setTextCursor(cursor);
    };
    put_caret("Source amount");
    QTest::keyClicks(editor, "Sorce ");
    ASSERT_SOON(messages->count() > 0);
    EXPECT_TRUE(messages->item(0)->text().contains("3:"))
        << editor->toPlainText().toStdString() << messages->item(0)->text().toStdString();
    EXPECT_EQ(value("amount"), 1) << "what was open stays open";
    for (int i = 0; i < 6; i++) QTest::keyClick(editor, Qt::Key_Backspace);
    ASSERT_SOON(messages->count() == 0 && !messages->isVisible());

    // Another param comes, and the value of the one that keeps its name stays.
    put_caret("  dest");
    QTest::keyClicks(editor, "  lift = 0.25 (min 0 max 1)");
    QTest::keyClick(editor, Qt::Key_Return);
    put_caret("(* Source amount)");
    QTest::keyClicks(editor, "(+ lift ");
    QTest::keyClick(editor, Qt::Key_End);
    QTest::keyClicks(editor, ")");
    ASSERT_SOON(field("lift") != nullptr && settled() &&
                std::abs(qGreen(result().pixel(20, 20)) - qGreen(plate().pixel(20, 20)) - 64) <= 2);
    EXPECT_EQ(value("amount"), 1);

    // Completion, and what the argument means.
    put_caret("(+ lift");
    QTest::keyClicks(editor, "(blu");
    auto* const list = window_->findChildren<QCompleter*>().isEmpty() ? nullptr : window_->findChild<QCompleter*>();
    ASSERT_NE(list, nullptr);
    ASSERT_SOON(list->popup()->isVisible());
    EXPECT_EQ(list->currentCompletion(), "blur");
    QTest::keyClick(list->popup(), Qt::Key_Return);
    ASSERT_SOON(editor->toPlainText().contains("(blur"));
    QTest::keyClicks(editor, " Source ");
    ASSERT_SOON(find<QLabel>("argument help")->text().contains("<u>"));

    // The file on disk counts where nothing was typed that is not saved.
    QTest::mouseClick(find<QPushButton>("save text"), Qt::LeftButton);
    ASSERT_SOON(message().contains("Saved"));
    std::ofstream(path.toStdString()) << "(def_effect Mine (Source) ()\n"
                                         "  amount = 0.5 (min 0 max 1 step 0.01)\n"
                                         "  dest = (- 1 Source)\n"
                                         ")\n";
    ASSERT_SOON(settled() && qGreen(result().pixel(20, 20)) == 255 - qGreen(plate().pixel(20, 20)));
}

TEST_F(Desk, FramesAreRenderedBesideTheWorkAndCancelledWithoutAPiece) {
    for (int i = 1; i <= 24; i++)
        ASSERT_TRUE(
            plate(i).scaled(960, 640).save(directory_.filePath(QString("in.%1.png").arg(i, 4, 10, QChar('0')))));
    open({"color:Grade", directory_.filePath("in.%04d.png")});
    EXPECT_EQ(find<QLineEdit>("output frames")->text(), "1-24");
    ASSERT_TRUE(QDir(directory_.path()).mkdir("out"));
    find<QLineEdit>("output path")->setText(directory_.filePath("out/f.%04d.png"));
    QTest::mouseClick(find<QPushButton>("render"), Qt::LeftButton);
    ASSERT_SOON(find<QProgressBar>("job progress") && find<QProgressBar>("job progress")->value() >= 10);
    type_value("exposure", "1");  // the work goes on meanwhile
    QTest::mouseClick(find<QPushButton>("cancel job"), Qt::LeftButton);
    auto* const job = window_->findChild<desk::OutputJob*>("job");
    ASSERT_SOON(job->ended());
    const QStringList files = QDir(directory_.filePath("out")).entryList(QDir::Files | QDir::Hidden);
    EXPECT_GE(files.size(), 10);
    EXPECT_LT(files.size(), 24) << "cancelled too late to tell";
    EXPECT_EQ(job->status(), 143);
    for (const QString& file : files)
        EXPECT_EQ(QImage(directory_.filePath("out/" + file)).size(), QSize(960, 640)) << file.toStdString();

    find<QLineEdit>("output path")->setText("/no/such/place/f.%04d.png");
    QTest::mouseClick(find<QPushButton>("render"), Qt::LeftButton);
    const auto last = [&] { return window_->findChildren<desk::OutputJob*>("job").last(); };
    ASSERT_SOON(window_->findChildren<desk::OutputJob*>("job").size() == 2 && last()->ended());
    EXPECT_EQ(last()->status(), 2);
    EXPECT_TRUE(message().contains("nothing was rendered")) << message().toStdString();
}

// The program that is killed: the test below runs it.
TEST_F(Desk, DISABLED_KilledAmidItsWork) {
    const char* const plate_path = std::getenv("DESK_TEST_PLATE");
    ASSERT_NE(plate_path, nullptr);
    open({"color:Grade", plate_path});
    type_value("exposure", "0.8");
    ASSERT_SOON(history()->count() == 2);
    type_value("contrast", "1.5");
    ASSERT_SOON(history()->count() == 3);
    raise(SIGKILL);
}

TEST_F(Desk, WorkOfAProgramThatWasKilledIsFoundAgain) {
    QProcess other;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DESK_TEST_DATA", data_);
    environment.insert("DESK_TEST_PLATE", plate_);
    other.setProcessEnvironment(environment);
    other.start(QCoreApplication::applicationFilePath(),
                {"--gtest_filter=Desk.DISABLED_KilledAmidItsWork", "--gtest_also_run_disabled_tests"});
    ASSERT_TRUE(other.waitForFinished(2 * patience));
    ASSERT_EQ(other.exitStatus(), QProcess::CrashExit);

    open({"color:Invert", plate_});
    ASSERT_TRUE(find<QWidget>("recovery")->isVisible());
    QTest::mouseClick(find<QPushButton>("recover"), Qt::LeftButton);
    ASSERT_SOON(field("contrast") != nullptr && std::abs(value("contrast") - 1.5f) < 1e-5 && has_picture());
    EXPECT_FLOAT_EQ(value("exposure"), 0.8f);
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(value("contrast") == 1 && value("exposure") != 0);
    // It is offered once.
    window_->close();
    window_ = nullptr;
    window_ = std::make_unique<Window>();
    window_->show();
    window_->begin({}, {});
    EXPECT_FALSE(find<QWidget>("recovery")->isVisible());
}

TEST_F(Desk, WhatFailsIsToldInALineAndTheWorkStays) {
    open_grade();
    const QImage before = result();
    std::ofstream(directory_.filePath("broken.png").toStdString()) << "no picture";
    drop(directory_.filePath("broken.png"));
    ASSERT_SOON(message().contains("broken.png"));
    EXPECT_EQ(result(), before);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
    // A frame that the effect cannot make does not look like one.
    std::ofstream(directory_.filePath("gaps.text").toStdString()) << "(def_effect Gaps (Source) () dest = Source)\n";
    ASSERT_TRUE(plate().save(directory_.filePath("gap.0001.png")));
    ASSERT_TRUE(plate().save(directory_.filePath("gap.0003.png")));
    drop(directory_.filePath("gap.%04d.png"));
    ASSERT_SOON(find<QSpinBox>("frame number")->maximum() == 3);
    find<QSpinBox>("frame number")->setValue(2);
    ASSERT_SOON(viewer()->picture().failure.contains("missing"));
    EXPECT_TRUE(result().isNull());
    find<QSpinBox>("frame number")->setValue(3);
    ASSERT_SOON(has_picture() && viewer()->picture().failure.isEmpty());
}

long resident_kilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    return 0;
}

// Whatever a person does in whatever order, it ends with the picture that the values ask for, and takes no more memory.
TEST_F(Desk, RandomActionsLeaveNothingBehind) {
    open({"glows:Glow", plate_});
    // Looks come in while nothing else is to be done; those that are not in the list are not rendered.
    ASSERT_SOON(find<QListWidget>("looks")->count() > 10);
    QTest::keyClicks(find<QLineEdit>("look search"), "no such look");
    std::mt19937 random(7);
    const auto act = [&] {
        const auto fields = window_->findChildren<ValueField*>();
        ValueField* const at = fields[static_cast<int>(random() % static_cast<unsigned>(fields.size()))];
        switch (random() % 6) {
            case 0:
                if (at->isVisible() && at->isEnabled()) drag(at, 20, 20 + static_cast<int>(random() % 60), 3);
                break;
            case 1:
                QTest::keyClick(at, random() % 2 ? Qt::Key_Up : Qt::Key_Down);
                break;
            case 2:
                QTest::keyClick(at, Qt::Key_Delete);
                break;
            case 3:
                shortcut(Qt::CTRL | Qt::Key_Z);
                break;
            case 4:
                shortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
                break;
            default:
                QTest::keyClick(viewer(), random() % 2 ? Qt::Key_Plus : Qt::Key_Minus);
        }
    };
#ifdef VELLORAN_SANITIZED
    constexpr int actions = 60;
#else
    constexpr int actions = 500;
#endif
    [[maybe_unused]] long before = 0;
    for (int i = 0; i < actions; i++) {
        act();
        if (i == actions / 2) before = resident_kilobytes();
    }
    shortcut(Qt::Key_F);
    wait_for_rest();
#ifndef VELLORAN_SANITIZED
    EXPECT_LT(resident_kilobytes() - before, 8000);  // the history grows by some kilobytes a step
#endif
    const QImage shown = result();
    shortcut(Qt::Key_F5);
    wait_for_rest();
    EXPECT_EQ(result(), shown) << "the picture that was shown is not that of the values";
}

TEST_F(Desk, TwoThreadsInThePlugInEndTheProgram) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            const spark_host::LibraryCall outer;
            const spark_host::LibraryCall inner;  // inside a call of the same thread
            std::thread([] { const spark_host::LibraryCall call; }).join();
        },
        "two threads call plug-ins at once");
}

TEST(DeskArithmetic, SumsThatAreTypedGoOnFromTheValue) {
    const struct {
        const char* typed;
        double value;
    } rows[] = {{"1.5", 1.5}, {"2*3+1", 7}, {"(4-1)/2", 1.5}, {"-3", -3},     {"*2", 20},       {"/4", 2.5},
                {"+=1", 11},  {"-=1", 9},   {"*2+1", 21},     {" 1,5 ", 1.5}, {"2*(3+(1))", 8}, {"-(2)", -2}};
    for (const auto& row : rows) {
        const auto value = desk::typed_value(row.typed, 10);
        ASSERT_TRUE(value) << row.typed;
        EXPECT_DOUBLE_EQ(*value, row.value) << row.typed;
    }
    for (const char* const wrong : {"", "x", "1+", "(1", "1)", "1/0", "1e999", "*", "1 2", "--"})
        EXPECT_FALSE(desk::typed_value(wrong, 10)) << wrong;
    EXPECT_FALSE(desk::typed_value(QString(100000, '('), 10));
}

}  // namespace
}  // namespace desk_test
