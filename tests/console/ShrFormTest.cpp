// The queue folder dialog: what it offers, what OK makes and stores, and AddDirs.
#include "console/ShrForm.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QTimer>
#include <QLineEdit>
#include <QPushButton>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Startup.h"
#include "platform/Files.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

template <typename T>
T* Child(QWidget& form, const char* name) {
    T* child = form.findChild<T*>(QString::fromLatin1(name));
    EXPECT_NE(child, nullptr) << name;
    return child;
}

std::string StoredRoot(test::TestServer& ts) {
    return GetSettingText(*ts.registry, "ServerSettings", "ServPath");
}

unsigned ModeOf(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
}

class ShrFormTest : public ::testing::Test {
protected:
    ShrFormTest() { SaveRegSetting(*ts.registry, "ServerSettings", "ServPath", ""); }
    test::TestServer ts;
};

// The path field proposes $HOME/$JQ at a first start and the stored root later.
TEST_F(ShrFormTest, ThePathIsTheStoredOneElseTheProposalAndTheShareCantBeTaken) {
    ShrForm fresh(*ts);
    EXPECT_EQ(Child<QLineEdit>(fresh, "Text1")->text().toStdString() + "/", ProposedQueueFolder());
    EXPECT_FALSE(Child<QCheckBox>(fresh, "Check1")->isChecked());
    EXPECT_FALSE(Child<QCheckBox>(fresh, "Check1")->isEnabled());
    SaveRegSetting(*ts.registry, "ServerSettings", "ServPath", "/srv/queue/");
    ShrForm stored(*ts);
    EXPECT_EQ(Child<QLineEdit>(stored, "Text1")->text(), QStringLiteral("/srv/queue"));
}

// Browse puts the folder picked in the chooser into the path field.
TEST_F(ShrFormTest, BrowseTakesThePickedFolder) {
    const QString picked = QString::fromStdString(WithoutBackslash(ts.dir.Path()));
    ShrForm form(*ts);
    QTimer::singleShot(0, [&] {
        auto* chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(chooser, nullptr);
        EXPECT_EQ(chooser->windowTitle(), QStringLiteral("Please select a folder."));
        chooser->setDirectory(picked);
        static_cast<QDialog*>(chooser)->accept();  // the chooser's own accept, as its button
    });
    Child<QPushButton>(form, "Command1")->click();
    EXPECT_EQ(Child<QLineEdit>(form, "Text1")->text(), picked);
}

// OK makes the folder; only one that can then be listed is stored, and the dialog closes.
TEST_F(ShrFormTest, OkStoresAFolderThatCanBeListedAndOtherwiseSaysSoAndStays) {
    const std::string d = ts.dir.Path();
    // "~" is the home folder, here the temporary one.
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", QByteArray::fromStdString(WithoutBackslash(d)));
    MakeFolders(d + "empty");
    ASSERT_TRUE(AppendToFile(d + "plainfile", "x"));
    struct Case {
        std::string typed, stored;  // stored: "" when the dialog must stay
    };
    const Case cases[] = {
        {"  " + d + "empty  ", d + "empty/"},
        {d + "new/deeper/queue", d + "new/deeper/queue/"},
        {d + "plainfile", ""},
        {"relative/queue", ""},
        {"~/tilde", d + "tilde/"},
        {"", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.typed);
        SaveRegSetting(*ts.registry, "ServerSettings", "ServPath", "");
        ts.op.messages.clear();
        ShrForm form(*ts);
        form.show();
        Child<QLineEdit>(form, "Text1")->setText(QString::fromStdString(c.typed));
        Child<QPushButton>(form, "Command2")->click();
        EXPECT_EQ(StoredRoot(ts), c.stored);
        EXPECT_EQ(form.isVisible(), c.stored.empty());
        if (c.stored.empty()) {
            ASSERT_EQ(ts.op.messages.size(), 1u);
            EXPECT_EQ(ts.op.messages[0].text, "Cannot change queue folder.\n\nPlease choose another path.");
            EXPECT_EQ(ts.op.messages[0].icon, MessageIcon::Exclamation);
            continue;
        }
        EXPECT_EQ(form.result(), QDialog::Accepted);
        EXPECT_EQ(ts->ServerPath, c.stored);
        EXPECT_EQ(Child<QLineEdit>(form, "Text1")->text().toStdString(), c.stored);
        EXPECT_TRUE(ts.op.messages.empty());
    }
    qputenv("HOME", oldHome);
    EXPECT_FALSE(PathExists("relative"));
    EXPECT_EQ(ModeOf(d + "new/deeper/queue"), 0700u);
}

// A first start with a window: the chooser is the real dialog, answered while it waits. What
// a chooser that stores nothing ends in is the start-up's test.
TEST_F(ShrFormTest, AtAFirstStartOkGivesTheRootItsTree) {
    struct NoOtherServer final : InstanceGuard {
        bool AnotherServerRuns() override { return false; }
    } guard;
    StartRequest request;
    request.chooseQueueFolder = QueueFolderChooser(*ts, nullptr);
    const std::string root = ts.dir.Path() + "first/queue";
    QTimer::singleShot(0, [&] {
        QWidget* dialog = QApplication::activeModalWidget();
        ASSERT_NE(dialog, nullptr);
        Child<QLineEdit>(*dialog, "Text1")->setText(QString::fromStdString(root));
        Child<QPushButton>(*dialog, "Command2")->click();
    });
    EXPECT_EQ(ProcessStart(*ts, request, guard), StartResult::Serve);
    EXPECT_EQ(StoredRoot(ts), root + "/");
    EXPECT_TRUE(IsFolder(root + "/$Data"));
}

TEST(AddDirs, MakesAtMostTwentyOneFoldersTheLastOfThemPrivate) {
    test::TempDir dir;
    std::string path = WithoutBackslash(dir.Path());
    const int below = 23;
    std::vector<std::string> levels;
    for (int i = 1; i <= below; ++i) levels.push_back(path += "/" + std::to_string(i));
    AddDirs(levels.back());
    const int above = static_cast<int>(std::count(dir.Path().begin(), dir.Path().end(), '/')) - 1;
    const int made = 21 - above;  // the folders above the temporary one count as well
    ASSERT_GT(made, 0);
    EXPECT_TRUE(IsFolder(levels[made - 1]));
    EXPECT_FALSE(PathExists(levels[made]));

    AddDirs(dir.Path() + "x/queue");
    EXPECT_EQ(ModeOf(dir.Path() + "x/queue"), 0700u);
    const mode_t umaskNow = ::umask(0);
    ::umask(umaskNow);
    EXPECT_EQ(ModeOf(dir.Path() + "x"), 0777u & ~umaskNow);
}

}  // namespace
}  // namespace vq
