#include "console/frmOptions.h"

#include <QApplication>
#include <QCalendarWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QFocusEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QScreen>
#include <QShortcut>
#include <QTabBar>
#include <QTabWidget>
#include <QTextCharFormat>
#include <QTimeEdit>
#include <QToolButton>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <charconv>
#include <cmath>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "console/Form1.h"
#include "core/Server.h"
#include "core/tables/CpuTime.h"
#include "core/tables/WorkingTables.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "runner/Accounting.h"
#include "storage/Enkripcija.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr const char* kServer = "ServerSettings";
constexpr int kColumnsPerRow = 10;       // check boxes in one column of the Columns page
constexpr int64_t kMostIo = 2147483647;  // what Classes.dat can read back

struct TabDef {
    const char* caption;
    const char* key;
    const char* toolTip;
    const char* helpKeyword;
};
constexpr TabDef kTabs[] = {
    {"General", "General", "General Options", "Orvantis Server General Options"},
    {"Columns", "Columns", "Columns", "Orvantis Server Column Options"},
    {"Non-working days", "Holidays", "Non-working days", "Orvantis Server Non-Working Days"},
    {"Auto Logon", "Logon", "Auto Logon", "Server Auto Logon"},
    {"Misc", "Timers", "Misc", "Orvantis Server Miscellaneous Options"},
    {"Classes", "Classes", "Classes", "Task Queue Classes"},
};
constexpr int kFirstHelpContext = 1002;

QString Q(const std::string& text) { return QString::fromStdString(text); }
QString L(const char* text) { return QString::fromUtf8(text); }
std::string S(const QString& text) { return text.toStdString(); }
QString Indexed(const char* name, int index) {
    return QStringLiteral("%1(%2)").arg(L(name)).arg(index);
}

QLabel* Caption(const char* text, QWidget* buddy = nullptr) {
    auto* label = new QLabel(L(text));
    if (buddy) label->setBuddy(buddy);
    return label;
}

QGroupBox* Group(const char* title, const char* name) {
    auto* group = new QGroupBox(L(title));
    group->setObjectName(L(name));
    return group;
}

// The stored value of a setting, or `fallback` when none is stored.
std::string StoredOr(Registry& reg, const char* name, const char* fallback) {
    if (!reg.Read(Hive::CurrentUser, SectionKey(kServer), name)) return fallback;
    return GetSettingText(reg, kServer, name);
}

// Selects the entry of a list by its key; false when no entry has it.
bool SelectKey(QComboBox* list, const QString& key) {
    const int index = list->findData(key);
    if (index >= 0) list->setCurrentIndex(index);
    return index >= 0;
}

QString KeyOf(const QComboBox* list) { return list->currentData().toString(); }

// A spin control beside its field: the arrows step the field's number within the range.
class UpDown : public QWidget {
  public:
    UpDown(QLineEdit* buddy, int low, int high, int step, const char* name) {
        setObjectName(L(name));
        auto* column = new QVBoxLayout(this);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(0);
        for (const int direction : {1, -1}) {
            auto* arrow = new QToolButton;
            arrow->setArrowType(direction > 0 ? Qt::UpArrow : Qt::DownArrow);
            arrow->setAutoRepeat(true);
            arrow->setFocusPolicy(Qt::NoFocus);
            arrow->setFixedSize(18, 12);
            column->addWidget(arrow);
            connect(arrow, &QToolButton::clicked, this, [=] {
                const int64_t now = std::clamp<int64_t>(Val(S(buddy->text())), low, high);
                buddy->setText(
                    QString::number(std::clamp<int64_t>(now + direction * step, low, high)));
            });
        }
    }
};

void FailUnlessStored(int code, Registry& reg) {
    if (code != 0)
        throw VqError(
            reg.LastError().empty() ? "The settings store refused a value." : reg.LastError(),
            code);
}

}  // namespace

double LimitPonder(const std::string& text) {
    std::string number = Trim(text);
    std::replace(number.begin(), number.end(), ',', '.');
    double value = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (number.empty() || error != std::errc() || end != number.data() + number.size() ||
        !std::isfinite(value))
        return 0;
    return std::min(value, 1.0);
}

std::string PonderText(double ponder) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, ponder);
    return std::string(text, result.ptr);
}

std::string ClassUnitsText(int64_t cpuSeconds, const std::string& memory, const std::string& io,
                           const std::array<double, 3>& ponders) {
    const double sum = static_cast<double>(cpuSeconds) * ponders[0] +
                       static_cast<double>(Val(memory)) * ponders[1] +
                       static_cast<double>(Val(io)) * ponders[2];
    return std::to_string(RoundHalfEven(sum));
}

std::string NonWorkFileText(const std::vector<std::string>& dates) {
    std::string text;
    for (const std::string& date : dates) text += "\"" + date + "\"\r\n";
    return text;
}

frmOptions::frmOptions(Server& server, std::function<void()> columnsApplied, QWidget* parent)
    : QDialog(parent), server_(server), columnsApplied_(std::move(columnsApplied)) {
    setObjectName(L("frmOptions"));
    setWindowTitle(L("Options"));
    setModal(true);
    setProperty("HelpContextID", kFirstHelpContext);
    const std::string help = server_.ProgramFolder + "VQSERVER.HLP";
    if (PathExists(help)) helpFile_ = help;

    tbsOptions = new QTabWidget;
    tbsOptions->setObjectName(L("tbsOptions"));
    QWidget* pages[] = {BuildGeneralPage(), BuildColumnsPage(), BuildHolidaysPage(),
                        BuildLogonPage(),   BuildMiscPage(),    BuildClassesPage()};
    for (int i = 0; i < 6; ++i) {
        pages[i]->setObjectName(L(kTabs[i].key));
        pages[i]->setProperty("HelpContextID", kFirstHelpContext + i);
        tbsOptions->addTab(pages[i], L(kTabs[i].caption));
        tbsOptions->setTabToolTip(i, L(kTabs[i].toolTip));
        tbsOptions->tabBar()->setTabData(i, L(kTabs[i].key));
    }
    connect(tbsOptions, &QTabWidget::currentChanged, this, [this](int index) {
        if (tbsOptions->widget(index)->objectName() == L("Holidays")) EnterHolidaysTab();
    });
    // Ctrl+Tab goes on to the next tab, from the last to the first.
    auto* nextTab = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Tab), this);
    nextTab->setContext(Qt::WindowShortcut);
    connect(nextTab, &QShortcut::activated, this, [this] {
        tbsOptions->setCurrentIndex((tbsOptions->currentIndex() + 1) % tbsOptions->count());
    });

    auto button = [this](const char* caption, const char* name) {
        auto* b = new QPushButton(L(caption));
        b->setObjectName(L(name));
        b->setAutoDefault(false);
        return b;
    };
    cmdOK = button("OK", "cmdOK");
    cmdOK->setDefault(true);
    cmdCancel = button("&Cancel", "cmdCancel");
    // Cancel takes no focus: leaving a refused field for Cancel must not hold the dialog.
    cmdCancel->setFocusPolicy(Qt::TabFocus);
    cmdApply = button("&Apply", "cmdApply");
    cmdHelp = button("&Help", "cmdHelp");
    connect(cmdOK, &QPushButton::clicked, this, &frmOptions::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(cmdApply, &QPushButton::clicked, this, [this] {
        if (QWidget* field = focusWidget(); field && qobject_cast<QLineEdit*>(field) &&
                                            !LeaveField(static_cast<QLineEdit*>(field), false))
            return;
        Apply();
    });
    connect(cmdHelp, &QPushButton::clicked, this, &frmOptions::cmdHelp_Click);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    for (QPushButton* b : {cmdOK, cmdCancel, cmdApply, cmdHelp}) buttons->addWidget(b);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tbsOptions);
    layout->addLayout(buttons);

    LoadSettings();
    LoadCH();
    layout->setSizeConstraint(QLayout::SetFixedSize);
    adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

QLineEdit* frmOptions::TextField(const QString& name) {
    auto* field = new QLineEdit;
    field->setObjectName(name);
    return field;
}

QLineEdit* frmOptions::NumberField(const QString& name, int length, bool ponder) {
    QLineEdit* field = TextField(name);
    // The key filter: digits, and for a ponder its decimal point; pasted text the same.
    const QRegularExpression keys(ponder ? QStringLiteral("[0-9.,]*") : QStringLiteral("[0-9]*"));
    field->setValidator(new QRegularExpressionValidator(keys, field));
    if (length > 0) field->setMaxLength(length);
    field->installEventFilter(this);
    return field;
}

QWidget* frmOptions::BuildGeneralPage() {
    auto* page = new QWidget;
    Text1 = TextField(L("Text1"));
    Text1->setReadOnly(true);
    Text1->setMaximumWidth(60);
    auto* upDown1 = new UpDown(Text1, 1, 10, 1, "UpDown1");
    ImageCombo1 = new QComboBox;
    ImageCombo1->setObjectName(L("ImageCombo1"));
    ImageCombo3 = new QComboBox;
    ImageCombo3->setObjectName(L("ImageCombo3"));
    ImageCombo3->addItem(L("Hide"), L("C0"));
    ImageCombo3->addItem(L("Show Minimized"), L("C7"));
    Buffer[0] = NumberField(L("Buffer(0)"), 0);
    Buffer[1] = NumberField(L("Buffer(1)"), 0);

    auto* task = Group("Task Options", "fraTask");
    auto* taskGrid = new QGridLayout(task);
    auto* maxRun = new QHBoxLayout;
    maxRun->setSpacing(2);
    maxRun->addWidget(Text1);
    maxRun->addWidget(upDown1);
    maxRun->addStretch();
    taskGrid->addWidget(Caption("Max Running Tasks:", Text1), 0, 0);
    taskGrid->addLayout(maxRun, 0, 1);
    taskGrid->addWidget(Caption("Max Task Priority:", ImageCombo1), 1, 0);
    taskGrid->addWidget(ImageCombo1, 1, 1);
    taskGrid->addWidget(Caption("Task Window Mode:", ImageCombo3), 2, 0);
    taskGrid->addWidget(ImageCombo3, 2, 1);
    auto* buffer = Group("Max Screen Buffer", "fraBuffer");
    auto* bufferRow = new QHBoxLayout(buffer);
    bufferRow->addWidget(Caption(" Height:", Buffer[0]));
    bufferRow->addWidget(Buffer[0]);
    bufferRow->addWidget(Caption("Width:", Buffer[1]));
    bufferRow->addWidget(Buffer[1]);
    taskGrid->addWidget(buffer, 3, 0, 1, 2);

    ImageCombo2 = new QComboBox;
    ImageCombo2->setObjectName(L("ImageCombo2"));
    for (int exponent = 10; exponent <= 16; ++exponent) {
        const QString size = QString::number(1 << exponent);
        ImageCombo2->addItem(size, L("S") + size);
    }
    FS[1] = NumberField(L("FS(1)"), 9);
    FS[2] = NumberField(L("FS(2)"), 9);
    auto* search = Group("File Search Options", "fraSearch");
    auto* searchGrid = new QGridLayout(search);
    searchGrid->addWidget(Caption("Search Block Size (bytes):", ImageCombo2), 0, 0);
    searchGrid->addWidget(ImageCombo2, 0, 1);
    searchGrid->addWidget(Caption("Max Search Segment In File (Kilobytes):", FS[1]), 1, 0);
    searchGrid->addWidget(FS[1], 1, 1);
    searchGrid->addWidget(Caption("Maximum Line Size:", FS[2]), 2, 0);
    searchGrid->addWidget(FS[2], 2, 1);
    searchGrid->setRowStretch(3, 1);

    chkCaptureScreen = new QCheckBox(L("Enable Capture Screen"));
    chkCaptureScreen->setObjectName(L("chkCaptureScreen"));
    txtTimeDelay = NumberField(L("txtTimeDelay"), 5);
    txtTimeDelay->setMaximumWidth(80);
    UpDown3 = new UpDown(txtTimeDelay, 100, 90000, 200, "UpDown3");
    lblTimeDelay = Caption("Time Delay Before Capturing Screen (miliseconds):", txtTimeDelay);
    connect(chkCaptureScreen, &QCheckBox::toggled, this, [this](bool on) {
        for (QWidget* w :
             {static_cast<QWidget*>(txtTimeDelay), UpDown3, static_cast<QWidget*>(lblTimeDelay)})
            w->setEnabled(on);
    });
    auto* capture = Group("Capture Screen Settings", "fraCapture");
    auto* captureGrid = new QGridLayout(capture);
    captureGrid->addWidget(chkCaptureScreen, 0, 0, 1, 3);
    captureGrid->addWidget(lblTimeDelay, 1, 0);
    captureGrid->addWidget(txtTimeDelay, 1, 1);
    captureGrid->addWidget(UpDown3, 1, 2);
    captureGrid->setColumnStretch(3, 1);

    auto* grid = new QGridLayout(page);
    grid->addWidget(task, 0, 0);
    grid->addWidget(search, 0, 1);
    grid->addWidget(capture, 1, 0, 1, 2);
    grid->setRowStretch(2, 1);
    return page;
}

QWidget* frmOptions::BuildColumnsPage() {
    auto* page = new QWidget;
    fraColumns = Group("Tasks Table", "fraColumns");
    new QGridLayout(fraColumns);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(fraColumns);
    layout->addStretch();
    return page;
}

QWidget* frmOptions::BuildHolidaysPage() {
    auto* page = new QWidget;
    MonthView1 = new QCalendarWidget;
    MonthView1->setObjectName(L("MonthView1"));
    MonthView1->setVerticalHeaderFormat(QCalendarWidget::NoVerticalHeader);
    MonthView1->setGridVisible(true);
    DTs = new QTreeWidget;
    DTs->setObjectName(L("DTs"));
    DTs->setHeaderLabels({L("Non-Working Days")});
    DTs->setRootIsDecorated(false);
    DTs->setMinimumWidth(170);
    Command1 = new QPushButton(L("Clear All Dates"));
    Command1->setObjectName(L("Command1"));
    Command1->setAutoDefault(false);
    connect(MonthView1, &QCalendarWidget::clicked, this, &frmOptions::MonthView1_DateClick);
    connect(DTs, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { DTs_Click(item); });
    connect(Command1, &QPushButton::clicked, this, &frmOptions::Command1_Click);

    auto* group = Group("Non-Working Days", "fraHolidays");
    auto* grid = new QGridLayout(group);
    grid->addWidget(MonthView1, 0, 0);
    grid->addWidget(DTs, 0, 1);
    grid->addWidget(Command1, 1, 1);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(group);
    layout->addStretch();
    return page;
}

QWidget* frmOptions::BuildLogonPage() {
    auto* page = new QWidget;
    StartQC = new QCheckBox(L("Start Task Queue"));
    StartQC->setObjectName(L("StartQC"));
    auto* start = Group("When Orvantis Server Starts:", "fraStart");
    (new QVBoxLayout(start))->addWidget(StartQC);

    Check2 = new QCheckBox(L("Start Orvantis Server"));
    Check2->setObjectName(L("Check2"));
    auto* note = new QLabel(L(" Note: This option will only be set on current user profile!!!"));
    note->setObjectName(L("lblNote"));
    LogOnC = new QCheckBox(L("Auto Logon"));
    LogOnC->setObjectName(L("LogOnC"));
    connect(LogOnC, &QCheckBox::clicked, this, &frmOptions::LogOnC_Click);
    auto* logon = Group("When Logon is Complete:", "fraLogonComplete");
    auto* logonColumn = new QVBoxLayout(logon);
    logonColumn->addWidget(Check2);
    logonColumn->addWidget(note);
    logonColumn->addWidget(LogOnC);

    txtD = TextField(L("txtD"));
    txtU = TextField(L("txtU"));
    txtP = TextField(L("txtP"));
    txtCP = TextField(L("txtCP"));
    for (QLineEdit* secret : {txtP, txtCP}) {
        secret->setEchoMode(QLineEdit::Password);
        secret->setStyleSheet(QStringLiteral("lineedit-password-character: 42"));  // "*"
    }
    fraLogon = Group("Auto Logon Information", "fraLogon");
    auto* grid = new QGridLayout(fraLogon);
    const std::pair<const char*, QLineEdit*> rows[] = {
        {"Domain:", txtD}, {"User Name:", txtU}, {"Password:", txtP}, {"Confirm Password:", txtCP}};
    int row = 0;
    grid->setColumnStretch(2, 1);
    for (const auto& [caption, field] : rows) {
        field->setFixedWidth(240);
        grid->addWidget(Caption(caption, field), row, 0);
        grid->addWidget(field, row++, 1);
    }
    logonColumn->addWidget(fraLogon);

    auto* layout = new QVBoxLayout(page);
    layout->addWidget(start);
    layout->addWidget(logon);
    layout->addStretch();
    return page;
}

QWidget* frmOptions::BuildMiscPage() {
    auto* page = new QWidget;
    auto* priorities = Group("Tasks Queue Priorities", "fraPriorities");
    auto* priorityGrid = new QGridLayout(priorities);
    const char* captions[] = {
        "Low Priority:", "Normal Priority:", "High Priority:", "Immediate Execution:"};
    for (int i = 0; i < 4; ++i) {
        JQP[i] = NumberField(Indexed("JQP", i), 9);
        JQP[i]->setMaximumWidth(110);
        priorityGrid->addWidget(Caption(captions[i], JQP[i]), i, 0);
        priorityGrid->addWidget(JQP[i], i, 1);
    }
    priorityGrid->setColumnStretch(2, 1);
    Misc[0] = NumberField(Indexed("Misc", 0), 4);
    Misc[1] = NumberField(Indexed("Misc", 1), 4);
    Misc[2] = NumberField(Indexed("Misc", 2), 2);
    Text2 = TextField(L("Text2"));
    Text2->setReadOnly(true);
    Text2->setMaximumWidth(60);
    for (QLineEdit* field : {Misc[0], Misc[1], Misc[2]}) field->setMaximumWidth(60);
    auto* misc = Group("Misc", "fraMisc");
    auto* miscGrid = new QGridLayout(misc);
    miscGrid->addWidget(Caption("Number Of Folders Per Task Project:", Misc[0]), 0, 0);
    miscGrid->addWidget(Misc[0], 0, 1);
    miscGrid->addWidget(Caption("Run Diagnostic On Every (seconds):", Text2), 1, 0);
    auto* diag = new QHBoxLayout;
    diag->setSpacing(2);
    diag->addWidget(Text2);
    diag->addWidget(new UpDown(Text2, 5, 995, 5, "UpDown2"));
    diag->addStretch();
    miscGrid->addLayout(diag, 1, 1, 1, 4);
    miscGrid->addWidget(Caption("Complete Tasks Stays In Queue For:", Misc[1]), 2, 0);
    miscGrid->addWidget(Misc[1], 2, 1);
    miscGrid->addWidget(Caption("Hours"), 2, 2);
    miscGrid->addWidget(Misc[2], 2, 3);
    miscGrid->addWidget(Caption("Minutes"), 2, 4);
    miscGrid->setColumnStretch(5, 1);

    auto* layout = new QVBoxLayout(page);
    layout->addWidget(priorities);
    layout->addWidget(misc);
    layout->addStretch();
    return page;
}

QWidget* frmOptions::BuildClassesPage() {
    auto* page = new QWidget;
    ImageCombo5 = new QComboBox;
    ImageCombo5->setObjectName(L("ImageCombo5"));
    ImageCombo4 = new QComboBox;
    ImageCombo4->setObjectName(L("ImageCombo4"));
    const std::pair<int, int> lengths[] = {{0, 14}, {1, 2}, {2, 2}, {3, 9}, {4, 9}};
    for (const auto& [i, length] : lengths) TxTC[i] = NumberField(Indexed("TxTC", i), length);
    for (int i = 0; i < 3; ++i) TxTPon[i] = NumberField(Indexed("TxTPon", i), 14, true);
    TxTPon[3] = TextField(Indexed("TxTPon", 3));
    TxTPon[3]->setReadOnly(true);
    auto picker = [](const char* name) {
        auto* time = new QTimeEdit;
        time->setObjectName(L(name));
        time->setDisplayFormat(L("H:mm:ss"));
        return time;
    };
    DTPicker1 = picker("DTPicker1");
    DTPicker2 = picker("DTPicker2");
    for (QLineEdit* days : {TxTC[1], TxTC[2]}) days->setMaximumWidth(36);
    for (QLineEdit* ponder : TxTPon) ponder->setMaximumWidth(90);
    for (QLineEdit* field : {TxTC[0], TxTC[3], TxTC[4]}) field->setFixedWidth(130);
    ImageCombo4->setFixedWidth(170);

    auto* grid = new QGridLayout;
    auto* header = Caption("Ponders");
    grid->addWidget(header, 0, 5, Qt::AlignCenter);
    auto addDays = [&](int row, QLineEdit* days, QTimeEdit* time) {
        auto* box = new QHBoxLayout;
        box->addWidget(days);
        box->addWidget(Caption("Days"));
        box->addWidget(time);
        box->addStretch();
        grid->addLayout(box, row, 1);
    };
    auto addPonder = [&](int row, int ponder, bool plus) {
        grid->addWidget(Caption("X"), row, 4, Qt::AlignCenter);
        grid->addWidget(TxTPon[ponder], row, 5);
        if (plus) grid->addWidget(Caption("+"), row, 6);
    };
    grid->addWidget(Caption("Max Running Time:", TxTC[1]), 1, 0);
    addDays(1, TxTC[1], DTPicker1);
    grid->addWidget(Caption("Starting Queue Priority:", TxTC[3]), 2, 0);
    grid->addWidget(TxTC[3], 2, 1);
    grid->addWidget(Caption("Starting CPU Priority:", ImageCombo4), 3, 0);
    grid->addWidget(ImageCombo4, 3, 1);
    grid->addWidget(Caption("Max CPU Time:", TxTC[2]), 4, 0);
    addDays(4, TxTC[2], DTPicker2);
    addPonder(4, 0, true);
    grid->addWidget(Caption("Max Memory Usage (KBytes):", TxTC[4]), 5, 0);
    grid->addWidget(TxTC[4], 5, 1);
    addPonder(5, 1, true);
    grid->addWidget(Caption("Max I/O Count:", TxTC[0]), 6, 0);
    grid->addWidget(TxTC[0], 6, 1);
    addPonder(6, 2, false);
    grid->addWidget(Caption("Max System Units:", TxTPon[3]), 7, 0);
    grid->addWidget(TxTPon[3], 7, 5);
    grid->setColumnMinimumWidth(3, 24);
    grid->setColumnStretch(7, 1);

    CancelSysUnits = NumberField(L("CancelSysUnits"), 9);
    CancelTime = NumberField(L("CancelTime"), 3);
    CancelTime->setMaximumWidth(60);
    auto* cancel = Group("Cancel Settings", "fraCancel");
    auto* cancelRow = new QHBoxLayout(cancel);
    cancelRow->addWidget(Caption("Max Cancel System Units:", CancelSysUnits));
    cancelRow->addWidget(CancelSysUnits);
    cancelRow->addSpacing(16);
    cancelRow->addWidget(Caption("Max Cancel Time:", CancelTime));
    cancelRow->addWidget(CancelTime);
    cancelRow->addWidget(Caption("seconds"));
    cancelRow->addStretch();

    auto* top = new QHBoxLayout;
    top->addWidget(ImageCombo5);
    top->addStretch();
    auto* layout = new QVBoxLayout(page);
    layout->addLayout(top);
    layout->addLayout(grid);
    layout->addWidget(cancel);
    layout->addStretch();

    for (QLineEdit* field :
         {TxTC[0], TxTC[1], TxTC[2], TxTC[3], TxTC[4], TxTPon[0], TxTPon[1], TxTPon[2]})
        connect(field, &QLineEdit::textChanged, this, &frmOptions::RecomputeSum);
    connect(DTPicker2, &QTimeEdit::timeChanged, this, &frmOptions::RecomputeSum);
    for (QTimeEdit* time : {DTPicker1, DTPicker2})
        connect(time, &QTimeEdit::editingFinished, this, &frmOptions::StoreClassFields);
    connect(ImageCombo4, &QComboBox::activated, this, &frmOptions::StoreClassFields);
    // The fields of the class on show go to the working copy before another class is shown.
    connect(ImageCombo5, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (classShown_ >= 0) StoreClassFields();
        ShowClass(index);
    });
    return page;
}

void frmOptions::LoadSettings() {
    Registry& reg = server_.registry;
    // Opening, in the order of its steps.
    for (QComboBox* list : {ImageCombo1, ImageCombo4}) {
        for (const PriorityEntry& entry : FillPriorityList(false))
            list->addItem(Q(entry.name), Q(entry.key));
        SelectKey(list, L("P22"));
    }
    work_.ClassTable = server_.classes.ClassTable;
    work_.Ponders = server_.classes.Ponders;
    for (const ClassEntry& entry : work_.ClassTable)
        ImageCombo5->addItem(L("Class ") + Q(entry.ClassName), Q(entry.ClassName));
    ImageCombo5->setCurrentIndex(0);
    if (classShown_ < 0) ShowClass(0);
    CancelSysUnits->setText(Q(PonderText(work_.Ponders[3])));
    CancelTime->setText(Q(PonderText(work_.Ponders[4])));

    auto setting = [&reg](const char* name) { return Q(GetSettingText(reg, kServer, name)); };
    Text1->setText(L("1"));
    Text1->setEnabled(false);
    findChild<QWidget*>(L("UpDown1"))->setEnabled(false);
    SelectKey(ImageCombo1, setting("MJP"));
    SelectKey(ImageCombo3, L("C") + setting("ConsMode"));
    Buffer[0]->setText(setting("BufH"));
    Buffer[1]->setText(setting("BufW"));
    if (!SelectKey(ImageCombo2, L("S") + setting("SBS"))) SelectKey(ImageCombo2, L("S2048"));
    FS[1]->setText(Q(StoredOr(reg, "MSFS", "1000")));
    FS[2]->setText(setting("MLS"));
    txtTimeDelay->setText(setting("CSTimeDelay"));
    const char* priorities[] = {"JQPL", "JQPN", "JQPH", "JQPIE"};
    for (int i = 0; i < 4; ++i) JQP[i]->setText(setting(priorities[i]));
    Misc[0]->setText(setting("CLF"));
    Misc[1]->setText(setting("TIQH"));
    Misc[2]->setText(setting("TIQM"));
    Text2->setText(QString::number(GetSettingNumber(reg, kServer, "DiagC") / 1000));

    LogOnC->setChecked(false);
    LogOnC->setEnabled(false);
    LogOnC_Click();
    Check2->setChecked(GetSettingNumber(reg, kServer, "StartServ") == 1);
    StartQC->setChecked(GetSettingNumber(reg, kServer, "StartQ") == 1);
    chkCaptureScreen->setChecked(GetSettingNumber(reg, kServer, "CSEnabled") == 1);
    chkCaptureScreen->toggled(chkCaptureScreen->isChecked());

    std::string text;
    if (ReadWholeFile(NonWorkFilePath(server_), text)) {
        for (const std::string& date : NonWorkDates(text)) {
            auto* item = new QTreeWidgetItem(DTs, {Q(date)});
            item->setData(0, Qt::UserRole, L("D") + Q(date));
        }
    }
}

void frmOptions::LoadCH() {
    auto* grid = static_cast<QGridLayout*>(fraColumns->layout());
    const std::vector<VqColumn>& columns = server_.tables.TaskTable.Columns();
    int box = 0;
    for (size_t i = 3; i < columns.size(); ++i) {
        const VqColumn& column = columns[i];
        if (column.viewFlag.empty()) continue;
        auto* check = new QCheckBox(Q(column.caption));
        check->setObjectName(Indexed("Check1", box));
        check->setProperty("key", Q(column.key));
        check->setChecked(column.viewFlag == "1");
        grid->addWidget(check, box % kColumnsPerRow, box / kColumnsPerRow);
        Check1.push_back(check);
        ++box;
    }
}

// The fields of a class and the ponders; errors leave the field as it was.
void frmOptions::ShowClass(int index) {
    if (index < 0 || index >= kClassCount) return;
    classShown_ = index;
    const ClassEntry& entry = work_.ClassTable[static_cast<size_t>(index)];
    auto showSpan = [](int64_t seconds, QLineEdit* days, QTimeEdit* time) {
        const TimeSpan span = SecondsToTimeSpan(seconds);
        days->setText(QString::number(span.days));
        time->setTime(QTime(static_cast<int>(span.hours), static_cast<int>(span.minutes),
                            static_cast<int>(span.seconds)));
    };
    showSpan(entry.MaxTime, TxTC[1], DTPicker1);
    showSpan(entry.MaxCpu, TxTC[2], DTPicker2);
    TxTC[3]->setText(QString::number(entry.QueuePriority));
    TxTC[4]->setText(QString::number(entry.MaxMemory));
    TxTC[0]->setText(QString::number(entry.MaxIo / kIoScale));
    SelectKey(ImageCombo4,
              entry.CpuPriority == 0 ? L("P22") : L("P") + Q(ZeroPad(entry.CpuPriority, 2)));
    for (int i = 0; i < 3; ++i)
        TxTPon[i]->setText(Q(PonderText(work_.Ponders[static_cast<size_t>(i)])));
    RecomputeSum();
}

void frmOptions::StoreClassFields() {
    if (classShown_ < 0) return;
    ClassEntry& entry = work_.ClassTable[static_cast<size_t>(classShown_)];
    auto number = [](QLineEdit* field) { return Val(S(field->text())); };
    auto seconds = [&number](QLineEdit* days, QTimeEdit* time) {
        const QTime t = time->time();
        return static_cast<int32_t>(
            TimeSpanToSeconds({number(days), t.hour(), t.minute(), t.second()}));
    };
    entry.MaxIo = std::clamp<int64_t>(number(TxTC[0]), 0, kMostIo) * kIoScale;
    entry.MaxMemory = static_cast<int32_t>(number(TxTC[4]));
    entry.QueuePriority = static_cast<int32_t>(number(TxTC[3]));
    if (!KeyOf(ImageCombo4).isEmpty())
        entry.CpuPriority = static_cast<uint8_t>(Val(S(KeyOf(ImageCombo4).mid(1))));
    entry.MaxTime = seconds(TxTC[1], DTPicker1);
    entry.MaxCpu = seconds(TxTC[2], DTPicker2);
    for (size_t i = 0; i < 3; ++i) work_.Ponders[i] = LimitPonder(S(TxTPon[i]->text()));
    work_.Ponders[3] = static_cast<double>(number(CancelSysUnits));
    work_.Ponders[4] = static_cast<double>(number(CancelTime));
}

void frmOptions::RecomputeSum() {
    if (recomputing_) return;
    recomputing_ = true;
    const bool inPonders =
        std::find(TxTPon.begin(), TxTPon.begin() + 3, focusWidget()) != TxTPon.begin() + 3;
    for (int i = 0; i < 3; ++i) {
        const QString limited = Q(PonderText(LimitPonder(S(TxTPon[i]->text()))));
        if (!inPonders ? TxTPon[i]->text() != limited : TxTPon[i]->text().isEmpty())
            TxTPon[i]->setText(inPonders ? L("0") : limited);
    }
    for (QLineEdit* field : TxTC)
        if (field->text().isEmpty()) field->setText(L("0"));
    const QTime cpu = DTPicker2->time();
    const int64_t cpuSeconds =
        TimeSpanToSeconds({Val(S(TxTC[2]->text())), cpu.hour(), cpu.minute(), cpu.second()});
    const std::array<double, 3> ponders = {LimitPonder(S(TxTPon[0]->text())),
                                           LimitPonder(S(TxTPon[1]->text())),
                                           LimitPonder(S(TxTPon[2]->text()))};
    TxTPon[3]->setText(
        Q(ClassUnitsText(cpuSeconds, S(TxTC[4]->text()), S(TxTC[0]->text()), ponders)));
    recomputing_ = false;
}

bool frmOptions::LeaveField(QLineEdit* field, bool beep) {
    auto refuse = [&] {
        if (beep) server_.op.Beep();
        return false;
    };
    auto emptyGives = [](QLineEdit* f, const char* text) {
        if (f->text().isEmpty()) f->setText(L(text));
    };
    // The fields that an empty text leaves with their default.
    const std::pair<QLineEdit*, const char*> defaults[] = {
        {Buffer[0], "800"}, {Buffer[1], "600"}, {FS[1], "1000"}, {FS[2], "256"},
        {Misc[0], "1"},     {Misc[1], "0"},     {Misc[2], "0"},  {txtTimeDelay, "200"}};
    for (const auto& [defaulted, text] : defaults)
        if (field == defaulted) emptyGives(field, text);
    if (std::find(JQP.begin(), JQP.end(), field) != JQP.end()) {
        for (QLineEdit* f : JQP) emptyGives(f, "0");
    } else if (field == CancelSysUnits || field == CancelTime) {
        if (field->text().isEmpty()) return refuse();
    } else if (std::find(TxTC.begin(), TxTC.end(), field) != TxTC.end()) {
        // 24 days or more is a day field's whole span; an I/O count beyond what Classes.dat
        // reads back would lose the classes at the next start.
        if ((field == TxTC[1] || field == TxTC[2]) && Val(S(field->text())) >= 24) return refuse();
        if (field == TxTC[0] && Val(S(field->text())) > kMostIo) return refuse();
        StoreClassFields();
    } else if (std::find(TxTPon.begin(), TxTPon.begin() + 3, field) != TxTPon.begin() + 3) {
        for (int i = 0; i < 3; ++i)
            TxTPon[i]->setText(Q(PonderText(LimitPonder(S(TxTPon[i]->text())))));
        StoreClassFields();
    }
    return true;
}

bool frmOptions::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::FocusOut) {
        auto* field = qobject_cast<QLineEdit*>(watched);
        const auto reason = static_cast<QFocusEvent*>(event)->reason();
        // A box or another window taking the focus is no leaving of the field.
        if (field && reason != Qt::ActiveWindowFocusReason && reason != Qt::PopupFocusReason &&
            !LeaveField(field, true))
            field->setFocus();
    }
    return QDialog::eventFilter(watched, event);
}

void frmOptions::LogOnC_Click() {
    const bool on = LogOnC->isChecked();
    fraLogon->setEnabled(on);
}

std::vector<std::string> frmOptions::ListedDates() const {
    std::vector<std::string> dates;
    for (int i = 0; i < DTs->topLevelItemCount(); ++i)
        dates.push_back(S(DTs->topLevelItem(i)->data(0, Qt::UserRole).toString().mid(1)));
    return dates;
}

namespace {
// The day of a row of the list; an invalid date for a text that is no date.
QDate DateOfRow(const QTreeWidgetItem* item) {
    VqDate date = 0;
    if (!TryReadDate(S(item->text(0)), date)) return {};
    const DateParts p = SplitDate(date);
    return QDate(p.year, p.month, p.day);
}
}  // namespace

void frmOptions::MonthView1_DateClick(const QDate& date) {
    bool removed = false;
    for (int i = DTs->topLevelItemCount(); i-- > 0;) {
        if (DateOfRow(DTs->topLevelItem(i)) != date) continue;
        delete DTs->takeTopLevelItem(i);
        removed = true;
    }
    if (removed) {
        MonthView1->setDateTextFormat(date, QTextCharFormat());
    } else {
        const QString text = date.toString(L("yyyy-MM-dd"));
        auto* item = new QTreeWidgetItem(DTs, {text});
        item->setData(0, Qt::UserRole, L("D") + text);
    }
    BoldDates();
}

void frmOptions::DTs_Click(QTreeWidgetItem* item) {
    const QDate date = DateOfRow(item);
    if (date.isValid()) {
        MonthView1->setSelectedDate(date);
        MonthView1->setCurrentPage(date.year(), date.month());
    }
    BoldDates();
}

void frmOptions::BoldDates() {
    QTextCharFormat bold;
    bold.setFontWeight(QFont::Bold);
    for (int i = 0; i < DTs->topLevelItemCount(); ++i)
        if (const QDate date = DateOfRow(DTs->topLevelItem(i)); date.isValid())
            MonthView1->setDateTextFormat(date, bold);
}

void frmOptions::Command1_Click() {
    DTs->clear();
    MonthView1->setDateTextFormat(QDate(), QTextCharFormat());
}

void frmOptions::EnterHolidaysTab() {
    const QDate first = DTs->topLevelItemCount() > 0 ? DateOfRow(DTs->topLevelItem(0)) : QDate();
    const QDate shown = first.isValid() ? first : QDate::currentDate();
    MonthView1->setSelectedDate(shown);
    MonthView1->setCurrentPage(shown.year(), shown.month());
    BoldDates();
}

void frmOptions::cmdHelp_Click() {
    const int tab = tbsOptions->currentIndex();
    if (helpFile_.empty()) {
        server_.op.Message(
            "Unable to display Help Contents. There is no Help associated with this project.",
            MessageIcon::Information, kAppTitle);
        return;
    }
    QUrl url = QUrl::fromLocalFile(Q(helpFile_));
    url.setFragment(L(kTabs[tab].helpKeyword));
    if (!QDesktopServices::openUrl(url))
        server_.op.Message("No viewer could open the help file " + helpFile_ + " at \"" +
                               kTabs[tab].helpKeyword + "\".",
                           MessageIcon::Exclamation, kAppTitle);
}

void frmOptions::cmdOK_Click() {
    // A field that refused to be left holds the dialog.
    if (auto* field = qobject_cast<QLineEdit*>(focusWidget()); field && !LeaveField(field, false))
        return;
    if (Apply()) accept();
}

bool frmOptions::Apply() {
    bool passwordsDiffer = false;
    try {
        ApplySteps(passwordsDiffer);
    } catch (const std::exception& error) {
        server_.op.Message(std::string("Error: Cannot Save Settings!\n\n") + error.what(),
                           MessageIcon::Exclamation, kAppTitle);
        return false;
    }
    return !passwordsDiffer;
}

void frmOptions::ApplySteps(bool& passwordsDiffer) {
    Registry& reg = server_.registry;
    auto save = [&reg](const char* name, const QString& value) {
        FailUnlessStored(SaveRegSetting(reg, kServer, name, S(value)), reg);
    };
    auto flag = [](const QCheckBox* box) { return box->isChecked() ? L("1") : L("0"); };
    auto scrambled = [](const QString& text) { return Q(HexEncode(ScrambleBlock("E", S(text)))); };
    // 1 and 2.
    save("MJP", KeyOf(ImageCombo1));
    save("SBS", ImageCombo2->currentText());
    save("Max Run Jobs", Text1->text());
    if (const int64_t count = Val(S(Text1->text())); count != server_.MaxRunningTasks)
        server_.MaxRunningTasks = static_cast<int32_t>(count);
    // 3.
    save("BufH", Buffer[0]->text());
    save("BufW", Buffer[1]->text());
    const char* priorities[] = {"JQPL", "JQPN", "JQPH", "JQPIE"};
    for (int i = 0; i < 4; ++i) save(priorities[i], JQP[i]->text());
    save("MSFS", FS[1]->text());
    save("MLS", FS[2]->text());
    save("ConsMode", KeyOf(ImageCombo3).mid(1));
    // 4 and 5.
    save("ServAdm", scrambled(L("Administrators")));
    save("ServUsers", scrambled(L("Users")));
    save("ALOUser", txtU->text());
    save("ALODomain", txtD->text());
    // 6: differing passwords leave ALOP as it is; Apply goes on and reports failure.
    if (txtP->text() == txtCP->text()) {
        save("ALOP", scrambled(txtP->text()));
    } else {
        server_.op.Message("Invalid Logon Passsword. Please retry.", MessageIcon::Exclamation,
                           kAppTitle);
        passwordsDiffer = true;
    }
    // 7 and 8.
    save("LogonEn", flag(LogOnC));
    FailUnlessStored(LogOnC->isChecked()
                         ? SetAutoLogon(reg, 1, S(txtU->text()), S(txtD->text()), S(txtP->text()))
                         : SetAutoLogon(reg, 0, " ", " ", " "),
                     reg);
    FailUnlessStored(SetRunAtLogon(reg, Check2->isChecked() ? 1 : 0, server_.ProgramFolder), reg);
    save("StartServ", flag(Check2));
    save("StartQ", flag(StartQC));
    // 9.
    save("CLF", Misc[0]->text());
    save("TIQH", Misc[1]->text());
    save("TIQM", Misc[2]->text());
    save("DiagC", QString::number(Val(S(Text2->text())) * 1000));
    save("CSEnabled", flag(chkCaptureScreen));
    save("CSTimeDelay", txtTimeDelay->text());
    // 10.
    std::string error;
    if (!WriteFileAtomic(NonWorkFilePath(server_), NonWorkFileText(ListedDates()), &error))
        throw VqError(error);
    // 11.
    StoreClassFields();
    for (size_t i = 0; i < work_.ClassTable.size(); ++i) {
        const int32_t units = server_.classes.ClassTable[i].MaxUnits;
        server_.classes.ClassTable[i] = work_.ClassTable[i];
        server_.classes.ClassTable[i].MaxUnits = units;
    }
    server_.classes.Ponders = work_.Ponders;
    ComputeClassUnits(server_.classes);
    SaveClasses(server_);
    // 12.
    VqTable& tasks = server_.tables.TaskTable;
    for (QCheckBox* box : Check1) {
        const std::string key = S(box->property("key").toString());
        tasks.SetViewFlag(static_cast<size_t>(tasks.ColumnIndex(key)), S(flag(box)));
        FailUnlessStored(SaveRegSetting(reg, "Settings", "Show-" + key, S(flag(box))), reg);
    }
    if (columnsApplied_) columnsApplied_();
}

void ShowOptionsDialog(Form1& window, Server& server) {
    frmOptions dialog(
        server,
        [&window] {
            window.SaveColumnWidths();
            window.Views().BuildTaskColumns();
            window.Views().mnuViewRefresh_Click();
        },
        &window);
    dialog.exec();
}

}  // namespace vq
