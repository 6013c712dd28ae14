// Renders the log viewer, the queue folder dialog, the splash, the Properties window's pages,
// every page of the Options dialog, the About box and the support page to PNG files,
// offscreen, so that a person can look at them: render-dialogs FOLDER.
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QTabWidget>
#include <QWidget>
#include <cstdio>

#include "console/ShrForm.h"
#include "console/StepsToolWin.h"
#include "console/VqSupport.h"
#include "console/frmAbout.h"
#include "console/frmLog.h"
#include "console/frmOptions.h"
#include "console/frmSplash.h"
#include "core/tables/WorkingTables.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "tests/support/TestSupport.h"

namespace {

bool Save(QWidget& widget, const QString& folder, const char* name) {
    widget.show();
    QApplication::processEvents();
    const QString path = folder + QLatin1Char('/') + QString::fromLatin1(name);
    const bool saved = widget.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "could not write", path.toLocal8Bit().constData());
    return saved;
}

// A log as a day of a server leaves it.
void WriteSampleLog(vq::Server& server) {
    const char* entries[] = {
        "Error occurred while starting step (000012-Nightly Backup)!\nStep runner ended "
        "unexpectedly.",
        "Error occurred while creating folder!\n\nPath: /home/op/$JQ/Sales/op/Report\n\n"
        "Permission denied",
        "Some running tasks were Cancelled because Orvantis Server was shut down:\n\n"
        "000031-Month End\n\n",
    };
    for (int day = 0; day < 4; ++day)
        for (const char* text : entries) vq::WriteServerLog(server, text);
}

// A repeating task with its report written and no diagnostic file yet.
std::string AddSampleTask(vq::test::TestServer& ts) {
    const std::string key = ts.AddTask(12, "Nightly Backup");
    std::string monthDays(31, ' '), weekDays(7, ' ');
    monthDays[0] = monthDays[14] = 'X';
    weekDays[1] = weekDays[5] = 'X';
    const std::pair<const char*, std::string> cells[] = {
        {"Dependency", "Build"},
        {"Repeat", "0003" + monthDays + weekDays + "0130WD"},
        {"CPU", "21"}};
    for (const auto& [column, value] : cells)
        vq::SetCell(ts->tables, vq::kTaskTable, key, column, value);
    const std::string folder = vq::GetCell(ts->tables, vq::kTaskTable, key, "RF") + "/";
    vq::MakeFolders(folder);
    vq::WriteFileAtomic(folder + "Nightly Backup.txt",
                        "Task: 000012-Nightly Backup\r\nSubmitted: 2026-11-22 12:00:00\r\n\r\n"
                        "Step 1 - Copy     Return Code: 01   CPU: 0:00:00:01:250\r\n");
    return key;
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    QDir().mkpath(folder);

    vq::test::TestServer ts;
    bool saved = true;
    {
        vq::frmLog empty(*ts);
        saved &= Save(empty, folder, "frmLog-empty.png");
    }
    WriteSampleLog(*ts);
    {
        vq::frmLog log(*ts);
        saved &= Save(log, folder, "frmLog.png");
    }
    {
        vq::ShrForm form(*ts);
        saved &= Save(form, folder, "ShrForm.png");
    }
    {
        vq::frmSplash splash;
        splash.SetStatus("Loading Database...");
        saved &= Save(splash, folder, "frmSplash.png");
    }
    {
        const std::string key = AddSampleTask(ts);
        vq::StepsToolWin properties(*ts, {});
        properties.PropKey(key);
        saved &= Save(properties, folder, "StepsToolWin-General.png");
        properties.Toolbar1_ButtonClick(QStringLiteral("Report"));
        saved &= Save(properties, folder, "StepsToolWin-Report.png");
        properties.Toolbar1_ButtonClick(QStringLiteral("Diag"));
        saved &= Save(properties, folder, "StepsToolWin-Diag.png");
    }
    {
        vq::WriteFileAtomic(vq::NonWorkFilePath(*ts), "\"2026-12-24\"\r\n\"2026-12-25\"\r\n\"2027-01-01\"\r\n");
        vq::frmOptions options(*ts, {});
        auto* tabs = options.findChild<QTabWidget*>(QStringLiteral("tbsOptions"));
        for (int i = 0; i < tabs->count(); ++i) {
            tabs->setCurrentIndex(i);
            const std::string name = "frmOptions-" + tabs->widget(i)->objectName().toStdString() + ".png";
            saved &= Save(options, folder, name.c_str());
        }
    }
    {
        vq::frmAbout about(*ts);
        saved &= Save(about, folder, "frmAbout.png");
    }
    {
        vq::VqSupport support(*ts);
        saved &= Save(support, folder, "VqSupport.png");
    }
    return saved ? 0 : 1;
}
