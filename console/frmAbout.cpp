#include "console/frmAbout.h"

#include <unistd.h>

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QVBoxLayout>

#include "console/Icons.h"
#include "console/SmallAids.h"
#include "core/Server.h"

namespace vq {
namespace {

// System information tools of the desktops, the most thorough first.
constexpr const char* kSystemInfoTools[] = {"kinfocenter", "hardinfo2", "hardinfo", "lshw-gtk",
                                            "cpu-x"};

QLabel* NewLabel(const QString& text, const char* name) {
    auto* label = new QLabel(text);
    label->setObjectName(QString::fromLatin1(name));
    return label;
}

}  // namespace

std::string FindSystemInfoTool(const std::string& searchPath) {
    for (const char* tool : kSystemInfoTools) {
        size_t from = 0;
        while (from <= searchPath.size()) {
            size_t end = searchPath.find(':', from);
            if (end == std::string::npos) end = searchPath.size();
            const std::string folder = searchPath.substr(from, end - from);
            from = end + 1;
            if (folder.empty()) continue;  // the working folder is no place to look for a tool
            const std::string path = folder + (folder.back() == '/' ? "" : "/") + tool;
            if (::access(path.c_str(), X_OK) == 0) return path;
        }
    }
    return {};
}

frmAbout::frmAbout(Server& server, QWidget* parent) : QDialog(parent), server_(server) {
    setObjectName(QStringLiteral("frmAbout"));
    setWindowTitle(QStringLiteral("About ") + QString::fromStdString(kAppTitle));
    setModal(true);

    auto* picIcon = NewLabel(QString(), "picIcon");
    picIcon->setPixmap(ImageIcon(QStringLiteral("Jobs")).pixmap(48, 48));
    lblTitle = NewLabel(QString::fromStdString(kAppTitle), "lblTitle");
    QFont big = lblTitle->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.4);
    lblTitle->setFont(big);
    lblVersion = NewLabel(QString::fromStdString("Personal Server Version " + VersionNumberText()),
                          "lblVersion");
    auto* lblDescription = NewLabel(
        QStringLiteral("A personal batch server: it keeps a queue of tasks and runs them step "
                       "by step on this computer."),
        "lblDescription");
    lblDescription->setWordWrap(true);
    lblDisclaimer = NewLabel(
        QStringLiteral("Copyright \u00a9 Halvenor. All rights reserved.\nThis program is "
                       "protected by copyright law. Copying or distributing it, or any part of "
                       "it, without permission is not allowed."),
        "lblDisclaimer");
    lblDisclaimer->setWordWrap(true);

    cmdOK = new QPushButton(QStringLiteral("OK"));
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    cmdSysInfo = new QPushButton(QStringLiteral("&System Info..."));
    cmdSysInfo->setObjectName(QStringLiteral("cmdSysInfo"));
    cmdSysInfo->setAutoDefault(false);
    connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
    connect(cmdSysInfo, &QPushButton::clicked, this, &frmAbout::StartSysInfo);

    auto* words = new QVBoxLayout;
    words->addWidget(lblTitle);
    words->addWidget(lblVersion);
    words->addSpacing(8);
    words->addWidget(lblDescription);
    auto* top = new QHBoxLayout;
    top->addWidget(picIcon, 0, Qt::AlignTop);
    top->addSpacing(12);
    top->addLayout(words, 1);
    auto* buttons = new QVBoxLayout;
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdSysInfo);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(lblDisclaimer, 1);
    bottom->addSpacing(12);
    bottom->addLayout(buttons);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addSpacing(6);
    layout->addWidget(ucLN("Line1"));
    layout->addLayout(bottom);
    setFixedWidth(460);
    setFixedHeight(sizeHint().height());
}

void frmAbout::StartSysInfo() {
    const char* searchPath = std::getenv("PATH");
    const std::string tool = FindSystemInfoTool(searchPath ? searchPath : "");
    if (tool.empty() || !QProcess::startDetached(QString::fromStdString(tool), {})) {
        server_.op.Message("System Information Is Unavailable At This Time \"" + tool + "\"",
                           MessageIcon::None, kAppTitle);
    }
}

void ShowAboutBox(QWidget* parent, Server& server) {
    frmAbout box(server, parent);
    box.exec();
}

}  // namespace vq
