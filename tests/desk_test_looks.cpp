// Looks and setups chosen from their pictures: they make what the command line makes of them.
#include "tests/desk_test_window.h"

namespace desk_test {
namespace {

class DeskLooks : public Desk {
protected:
    QString made_ = directory_.filePath("look.png");

    QListWidget* own() { return find<QListWidget>("own looks"); }
    void render_look(const QString& effect, const QString& look) {
        QStringList words = {"render", effect, "-i", plate_, "-o", made_};
        if (!look.isEmpty()) words += {"--look", look};
        ASSERT_EQ(run_program(words), 0);
    }
    static QImage icon(const QListWidgetItem* item) { return item->icon().pixmap(128, 76).toImage(); }
    static bool has_thumbnail(const QListWidgetItem* item) {
        const QImage image = icon(item);
        return image.pixel(3, 3) != image.pixel(90, 60);  // the plate's pixels all differ
    }
};

TEST_F(DeskLooks, ALookOfTheOpenEffectIsOneStepOverTheDefaults) {
    open_grade();
    type_value("pivot", "0.2");  // no look names it: it comes back
    ASSERT_SOON(history()->count() == 2);
    ASSERT_NE(item("own looks", "As it comes"), nullptr);
    ASSERT_NE(item("own looks", "Warm Evening"), nullptr);
    ASSERT_SOON(has_thumbnail(item("own looks", "As it comes")) && has_thumbnail(item("own looks", "Warm Evening")));
    EXPECT_NE(icon(item("own looks", "As it comes")), icon(item("own looks", "Warm Evening")));

    int steps = history()->count();
    for (const char* const look : {"Warm Evening", "Matte Print", "As it comes"}) {
        SCOPED_TRACE(look);
        render_look("color:Grade", QString(look) == "As it comes" ? QString() : QString(look));
        click_item(own(), item("own looks", look));
        ASSERT_SOON(history()->count() == steps + 1 && shows(made_));
        steps++;
    }
    EXPECT_EQ(history()->item(2)->text(), "look Warm Evening");
    EXPECT_NEAR(value("pivot"), 0.435, 1e-3);
    shortcut(Qt::CTRL | Qt::Key_Z);
    render_look("color:Grade", "Matte_Print");
    ASSERT_SOON(shows(made_));
    for (int i = 0; i < 2; i++) shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(std::abs(value("pivot") - 0.2f) < 1e-5 && settled());
}

// By the search or the list of all looks; another effect with its look is one step as well.
TEST_F(DeskLooks, LooksOfOtherEffectsAreFoundAndChosen) {
    open({"color:Invert", plate_});
    type_value("amount", "0.5");
    ASSERT_SOON(history()->count() == 2);
    QTest::keyClicks(find<QLineEdit>("look search"), "moonlight");
    ASSERT_SOON(item("looks", "Day For Night") != nullptr);
    render_look("color:Grade", "Day_For_Night");
    click_item(find<QListWidget>("looks"), item("looks", "Day For Night"));
    ASSERT_SOON(history()->count() == 3 && field("exposure") && shows(made_));
    EXPECT_EQ(history()->item(2)->text(), "color : Grade, Day For Night");
    shortcut(Qt::CTRL | Qt::Key_Z);
    ASSERT_SOON(field("amount") && value("amount") == 0.5f && settled());
    shortcut(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
    ASSERT_SOON(field("exposure") && shows(made_));
}

TEST_F(DeskLooks, EveryLookMakesWhatTheCommandLineMakes) {
    open_grade();
    auto* const families = find<QComboBox>("families");
    ASSERT_SOON(families->findText("glows") >= 0);
    families->setCurrentIndex(families->findText("All looks"));
    auto* const list = find<QListWidget>("looks");
    ASSERT_GT(list->count(), 20);
#ifdef VELLORAN_SANITIZED
    constexpr int stride = 9;
#else
    constexpr int stride = 2;
#endif
    for (int i = 0; i < list->count(); i += stride) {
        const auto choice = list->item(i)->data(Qt::UserRole).value<desk::Choice>();
        if (choice.effect.rfind("color:", 0) != 0 && choice.effect.rfind("glows:", 0) != 0) continue;
        SCOPED_TRACE(choice.effect + " " + choice.look);
        render_look(QString::fromStdString(choice.effect), QString::fromStdString(choice.look));
        click_item(list, list->item(i));
        ASSERT_SOON(shows(made_));
    }
}

// The thumbnail of a look has nothing of the one before it, which the same plug-in made.
TEST_F(DeskLooks, ThumbnailsDoNotDependOnTheirOrder) {
    const auto thumbnails_of = [&](const QString& words) {
        open({"glows:Glow", plate_});
        auto* const list = find<QListWidget>("looks");
        std::map<QString, QImage> images;
        EXPECT_TRUE(QTest::qWaitFor([&] { return find<QComboBox>("families")->findText("glows") >= 0; }, patience));
        find<QLineEdit>("look search")->setText(words);
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                for (int i = 0; i < list->count(); i++)
                    if (!has_thumbnail(list->item(i))) return false;
                return list->count() > 0;
            },
            patience));
        for (int i = 0; i < list->count(); i++)
            images[list->item(i)->text() + list->item(i)->toolTip()] = icon(list->item(i));
        window_ = nullptr;
        return images;
    };
    const auto all = thumbnails_of("color Grade");
    EXPECT_GE(all.size(), 4u);
    for (const char* const words : {"color Grade warm evening", "color Grade matte print"})
        for (const auto& [name, image] : thumbnails_of(words)) {
            ASSERT_TRUE(all.count(name)) << name.toStdString();
            EXPECT_EQ(image, all.at(name)) << name.toStdString();
        }
}

TEST_F(DeskLooks, TheCommandLineNamesALook) {
    render_look("color:Grade", "Warm_Evening");
    open({"color:Grade", plate_}, {}, "Warm_Evening");
    ASSERT_SOON(shows(made_));
    EXPECT_EQ(history()->count(), 1);
    window_ = nullptr;  // plug-ins live in one thread
    window_ = std::make_unique<Window>();
    window_->show();
    window_->begin({"color:Grade", plate_}, {}, "Warm_Evning");
    ASSERT_SOON(message().contains("did you mean 'Warm_Evening'")) << message().toStdString();
    EXPECT_TRUE(result().isNull());
}

TEST_F(DeskLooks, ATextBringsLooksOfItsOwnAlsoWhileItIsTyped) {
    const QString path = directory_.filePath("mine.text");
    std::ofstream(path.toStdString()) << "(def_effect Mine (Source) ()\n"
                                         "  amount = 0.5 (min 0 max 1 step 0.01)\n  dest = (* Source amount)\n)\n";
    std::ofstream(directory_.filePath("mine.looks").toStdString()) << "// All of it.\nMine:Whole\n  amount=1\n";
    open({path, plate_});
    ASSERT_NE(item("own looks", "Whole"), nullptr);
    click_item(own(), item("own looks", "Whole"));
    ASSERT_SOON(value("amount") == 1 && shows(plate_));
    auto* const editor = find<QPlainTextEdit>("text");
    QTextCursor cursor = editor->document()->find("(* Source");
    cursor.setPosition(cursor.selectionStart());
    editor->setTextCursor(cursor);
    QTest::keyClicks(editor, "(- 1 ");
    QTest::keyClick(editor, Qt::Key_End);
    QTest::keyClicks(editor, ")");
    const QRgb white = qRgb(255, 255, 255);
    ASSERT_SOON(settled() && result().pixel(20, 20) == (white ^ (plate().pixel(20, 20) & 0xffffffu)));
    click_item(own(), item("own looks", "As it comes"));
    ASSERT_SOON(value("amount") == 0.5f && settled());
    click_item(own(), item("own looks", "Whole"));
    ASSERT_SOON(value("amount") == 1 && settled());
    EXPECT_EQ(result().pixel(20, 20), white ^ (plate().pixel(20, 20) & 0xffffffu)) << "of the text as it is typed";

    // A damaged file costs the looks and nothing else.
    std::ofstream(directory_.filePath("mine.looks").toStdString()) << "Mine:Whole\n  amount\n";
    window_ = nullptr;
    open({path, plate_});
    ASSERT_SOON(message().contains("mine.looks:2: 'amount' is not of the form NAME=VALUE")) << message().toStdString();
    EXPECT_EQ(own()->count(), 1);
}

TEST_F(DeskLooks, ASetupThatIsSavedIsALookOfItsEffect) {
    open_grade();
    type_value("exposure", "0.7");
    ASSERT_SOON(history()->count() == 2 && settled());
    const QString setup = data_ + "/velloran-desk/setups/Bright one.setup";
    answer_dialog(setup);
    shortcut(QKeySequence::Save);
    ASSERT_SOON(item("own looks", "Bright one") != nullptr && has_thumbnail(item("own looks", "Bright one")));
    const QImage wanted = result(), before = icon(item("own looks", "Bright one"));
    QTest::keyClick(field("exposure"), Qt::Key_Delete);
    ASSERT_SOON(value("exposure") == 0 && settled());
    click_item(own(), item("own looks", "Bright one"));
    ASSERT_SOON(settled() && result() == wanted);

    // Saved anew under its name it has another picture.
    type_value("exposure", "-2");
    ASSERT_SOON(value("exposure") == -2 && settled() && result() != wanted);
    QTimer::singleShot(500, [] {
        if (auto* const asked = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
            asked->button(QMessageBox::Yes)->click();
    });
    answer_dialog(setup);
    shortcut(QKeySequence::Save);
    ASSERT_SOON(item("own looks", "Bright one") && has_thumbnail(item("own looks", "Bright one")) &&
                icon(item("own looks", "Bright one")) != before);
}

}  // namespace
}  // namespace desk_test
