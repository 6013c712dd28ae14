#include "console/ShrForm.h"

#include <sys/stat.h>

#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr int kMostFolders = 21;

QLabel* NewLabel(const char* text, const char* name) {
    auto* label = new QLabel(QString::fromLatin1(text));
    label->setObjectName(QString::fromLatin1(name));
    return label;
}

QString FromPath(const std::string& path) { return QFile::decodeName(QByteArray::fromStdString(path)); }

// The typed path as the file system names it; "~" at its start is the home folder, as a shell
// would read it.
std::string ToPath(const QString& text) {
    QString path = text.trimmed();
    if (path == QLatin1String("~") || path.startsWith(QLatin1String("~/")))
        path.replace(0, 1, QDir::homePath());
    return QFile::encodeName(path).toStdString();
}

// The stored root, else the proposal, as the path field shows it: without a closing "/".
std::string ProposedPath(Server& server) {
    const std::string stored = GetSettingText(server.registry, "ServerSettings", "ServPath");
    return WithoutBackslash(stored.empty() ? ProposedQueueFolder() : stored);
}

// The hourglass from here to the end of the scope.
struct WaitCursor {
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

}  // namespace

void AddDirs(const std::string& path) {
    if (path.empty() || path[0] != '/') return;
    const std::string full = WithBackslash(path);
    size_t slash = full.find('/', 1);
    for (int made = 0; slash != std::string::npos && made < kMostFolders; ++made) {
        const bool isRoot = slash + 1 == full.size();
        ::mkdir(full.substr(0, slash).c_str(), isRoot ? 0700 : 0777);
        slash = full.find('/', slash + 1);
    }
}

ShrForm::ShrForm(Server& server, QWidget* parent) : QDialog(parent), server_(server) {
    setObjectName(QStringLiteral("ShrForm"));
    setWindowTitle(QStringLiteral("Orvantis Server Queue Folder"));
    setModal(true);

    Label2 = NewLabel("Please Select Queue Folder!", "Label2");
    QFont heading = Label2->font();
    heading.setBold(true);
    heading.setPointSizeF(heading.pointSizeF() * 1.25);
    Label2->setFont(heading);
    Label1 = NewLabel("In This Folder Will Be Stored All Tasks' Data:", "Label1");
    Label3 = NewLabel("", "Label3");
    Label3->setText(QStringLiteral(
        "- Orvantis Server Datebase\n- Reports\n- Task Files\n- Additional Files"));
    Label3->setContentsMargins(16, 0, 0, 0);

    Text1 = new QLineEdit(FromPath(ProposedPath(server)));
    Text1->setObjectName(QStringLiteral("Text1"));
    Text1->setMinimumWidth(360);
    Command1 = new QPushButton(QStringLiteral("Browse"));
    Command1->setObjectName(QStringLiteral("Command1"));
    Command1->setAutoDefault(false);
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(Text1, 1);
    pathRow->addWidget(Command1);

    // The share is offered but can't be taken.
    Check1 = new QCheckBox(QStringLiteral(
        "Create \"$JQ\" Share So That Your Server Can Be Accessed Through The Network"));
    Check1->setObjectName(QStringLiteral("Check1"));
    Check1->setChecked(false);
    Check1->setEnabled(false);
    Label5 = NewLabel("If You Choose Not To Create This Share You Can Always Create It Later.",
                      "Label5");
    Label4 = NewLabel("Domain Controller Must Be Available To Create This Share!!!", "Label4");
    for (QLabel* note : {Label5, Label4}) {
        note->setEnabled(false);
        note->setContentsMargins(24, 0, 0, 0);
    }

    auto* box = new QDialogButtonBox;
    Command2 = box->addButton(QStringLiteral("OK"), QDialogButtonBox::AcceptRole);
    Command2->setObjectName(QStringLiteral("Command2"));
    Command2->setDefault(true);
    Command3 = box->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    Command3->setObjectName(QStringLiteral("Command3"));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label2);
    layout->addSpacing(6);
    layout->addWidget(Label1);
    layout->addWidget(Label3);
    layout->addSpacing(6);
    layout->addLayout(pathRow);
    layout->addSpacing(10);
    layout->addWidget(Check1);
    layout->addWidget(Label5);
    layout->addWidget(Label4);
    layout->addSpacing(10);
    layout->addWidget(box);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    connect(Command1, &QPushButton::clicked, this, &ShrForm::Command1_Click);
    connect(Command2, &QPushButton::clicked, this, &ShrForm::Command2_Click);
    connect(Command3, &QPushButton::clicked, this, &QDialog::reject);
}

void ShrForm::Command1_Click() {
    const QString chosen = QFileDialog::getExistingDirectory(
        this, QStringLiteral("Please select a folder."), QDir::homePath(),
        QFileDialog::ShowDirsOnly);
    if (!chosen.isEmpty()) Text1->setText(chosen);
}

void ShrForm::Command2_Click() {
    WaitCursor hourglass;
    std::string path = ToPath(Text1->text());
    AddDirs(path);
    // Only a path from "/" names one folder whatever the server's working folder.
    const bool absolute = !path.empty() && path[0] == '/';
    if (absolute) path = NormalQueueRoot(path);
    Text1->setText(FromPath(WithBackslash(path)));
    server_.ServerPath = WithBackslash(path);
    if (absolute && FolderExists(path)) {
        if (SaveRegSetting(server_.registry, "ServerSettings", "ServPath", server_.ServerPath) == 0) {
            accept();
            return;
        }
    }
    server_.op.Message("Cannot change queue folder.\n\nPlease choose another path.",
                       MessageIcon::Exclamation, kAppTitle);
}

bool ShowQueueFolderDialog(QWidget* parent, Server& server) {
    ShrForm form(server, parent);
    return form.exec() == QDialog::Accepted;
}

std::function<void()> QueueFolderChooser(Server& server, QWidget* parent) {
    return [&server, parent] { ShowQueueFolderDialog(parent, server); };
}

}  // namespace vq
