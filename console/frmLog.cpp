#include "console/frmLog.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "calendar/DateTime.h"
#include "console/SmallAids.h"
#include "core/Server.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"

namespace vq {
namespace {

QPushButton* AddButton(QHBoxLayout* row, const char* caption, const char* name) {
    auto* button = new QPushButton(QString::fromLatin1(caption));
    button->setObjectName(QString::fromLatin1(name));
    button->setAutoDefault(false);
    row->addWidget(button);
    return button;
}

}  // namespace

frmLog::frmLog(Server& server, QWidget* parent) : QDialog(parent), server_(server) {
    setObjectName(QStringLiteral("frmLog"));
    setWindowTitle(QStringLiteral("Orvantis Server Log"));
    setModal(true);

    RichTextBox1 = NewFileTextBox(QFontDatabase::systemFont(QFontDatabase::FixedFont));

    auto* buttons = new QHBoxLayout;
    Command2 = AddButton(buttons, "&Reload Log", "Command2");
    Command1 = AddButton(buttons, "Clear &Log", "Command1");
    buttons->addStretch();
    OKButton = AddButton(buttons, "&Close", "OKButton");
    OKButton->setDefault(true);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(RichTextBox1);
    layout->addLayout(buttons);
    resize(760, 480);

    connect(Command2, &QPushButton::clicked, this, &frmLog::LoadLog);
    connect(Command1, &QPushButton::clicked, this, &frmLog::ClearLog);
    connect(OKButton, &QPushButton::clicked, this, &QDialog::accept);
    LoadLog();
}

std::string frmLog::LogPath() const { return server_.DataPath + kServerLogName; }

void frmLog::LoadLog() {
    std::string bytes;
    if (!ReadWholeFile(LogPath(), bytes)) bytes.clear();
    const QString text = FileTextForTheBox(bytes);
    RichTextBox1->setPlainText(text.isEmpty() ? QString::fromLatin1(kNoErrorsInLog) : text);
    // The newest entries are at the end, and they are what the operator comes to read.
    RichTextBox1->moveCursor(QTextCursor::End);
}

void frmLog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    RichTextBox1->ensureCursorVisible();
}

void frmLog::ClearLog() {
    const std::string line = "LOG CLEARED AT: " + FormatLocaleDateTime(server_.clock.Now()) + "\r\n";
    RichTextBox1->setPlainText(FileTextForTheBox(line));
    std::string error;
    if (!WriteFileAtomic(LogPath(), line, &error))
        server_.op.Message("The server log could not be cleared.\n\n" + error,
                           MessageIcon::Exclamation, kAppTitle);
}

void ShowServerLog(QWidget* parent, Server& server) {
    frmLog form(server, parent);
    form.exec();
}

}  // namespace vq
