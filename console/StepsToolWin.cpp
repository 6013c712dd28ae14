#include "console/StepsToolWin.h"

#include <QActionGroup>
#include <QComboBox>
#include <QDateEdit>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QTimeEdit>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <QValidator>
#include <algorithm>

#include "calendar/Common.h"
#include "calendar/MUrnik.h"
#include "console/Icons.h"
#include "console/SmallAids.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/tables/WorkingTables.h"
#include "platform/Files.h"

namespace vq {
namespace {

QString Q(const char* text) { return QString::fromUtf8(text); }
QString Q(const std::string& text) { return QString::fromStdString(text); }

// A step of the loading or the writing whose failure is passed over, so that the next goes on.
template <typename Step>
void Attempt(Step step) {
    try {
        step();
    } catch (const std::exception&) {
    }
}

bool AllDigits(const std::string& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Mid$: the characters from a position counted from 0, fewer or none past the end.
std::string Mid(const std::string& text, size_t from, size_t count = std::string::npos) {
    return from < text.size() ? text.substr(from, count) : std::string();
}

struct ToolButton {
    const char* key;
    const char* caption;
};
constexpr ToolButton kToolButtons[] = {
    {"General", "General Properties"}, {"Report", "Report"}, {"Diag", "Task Diagnostic"}};

// The key filter and the length of a field, judged against the text before the edit: no
// typing or pasting past the limit, and in a number field no character but digits. A longer
// text, or one with other characters, that the program put in stays whole; the operator can
// shorten it but not lengthen it.
class FieldFilter final : public QValidator {
  public:
    FieldFilter(QLineEdit* edit, int limit, bool digitsOnly)
        : QValidator(edit), limit_(limit), digitsOnly_(digitsOnly) {
        connect(edit, &QLineEdit::textChanged, this,
                [this](const QString& text) { before_ = text; });
    }
    State validate(QString& input, int&) const override {
        if (input.size() > std::max<qsizetype>(limit_, before_.size())) return Invalid;
        if (digitsOnly_ && NonDigits(input) > NonDigits(before_)) return Invalid;
        return Acceptable;
    }

  private:
    static qsizetype NonDigits(const QString& text) {
        return std::count_if(text.cbegin(), text.cend(),
                             [](QChar c) { return c < QLatin1Char('0') || c > QLatin1Char('9'); });
    }

    int limit_;
    bool digitsOnly_;
    QString before_;
};

// A text that the program puts in stands as it is: the filter judges the operator's edits only
// (a text it refused would let the next edit through unjudged).
void ShowText(QLineEdit* edit, const std::string& text) {
    const QValidator* filter = edit->validator();
    edit->setValidator(nullptr);
    edit->setText(Q(text));
    edit->setValidator(filter);
}

QLineEdit* MakeField(const char* name, int limit, bool digitsOnly, int widthInDigits) {
    auto* edit = new QLineEdit;
    edit->setObjectName(Q(name));
    edit->setValidator(new FieldFilter(edit, limit, digitsOnly));
    const int digit = edit->fontMetrics().horizontalAdvance(QLatin1Char('0'));
    edit->setFixedWidth(digit * widthInDigits + 16);
    return edit;
}

// The user's short date ("ddddd") with the whole year, and the long time ("ttttt") without a
// time zone.
QString DatePattern() {
    QString pattern = QLocale().dateFormat(QLocale::ShortFormat);
    if (!pattern.contains(Q("yyyy"))) pattern.replace(Q("yy"), Q("yyyy"));
    return pattern;
}
QString TimePattern() {
    QString pattern = QLocale().timeFormat(QLocale::LongFormat);
    pattern.remove(QRegularExpression(Q("\\s*t+\\s*")));
    return pattern.trimmed();
}

}  // namespace

TaskPropertyFields ReadTaskProperties(WorkingTables& tables, const std::string& taskKey, VqDate now,
                                      int& cpuCode) {
    TaskPropertyFields fields;
    fields.schedule = now;
    cpuCode = 0;
    auto cell = [&](const char* column) { return GetCell(tables, kTaskTable, taskKey, column); };
    std::string repeat;
    Attempt([&] { repeat = cell("Repeat"); });
    // The count, and the marks at 5 to 35 and 36 to 42 (counted from 1).
    if (const std::string times = repeat.substr(0, 4); AllDigits(times))
        fields.times = std::to_string(std::stoll(times));
    for (size_t day = 0; day < fields.monthDays.size(); ++day)
        fields.monthDays[day] = Mid(repeat, 4 + day, 1) == "X";
    for (size_t day = 0; day < fields.weekDays.size(); ++day)
        fields.weekDays[day] = Mid(repeat, 35 + day, 1) == "X";
    fields.hours = Mid(repeat, 42, 2);
    fields.minutes = Mid(repeat, 44, 2);
    const std::string mode = Mid(repeat, 46);
    for (const DayCodeEntry& entry : kDayCodes)
        if (mode == entry.key) fields.dayCode = mode;

    Attempt([&] {
        const std::string cpu = cell("CPU");
        for (const PriorityEntry& entry : FillPriorityList(true))
            if (entry.key == "P" + cpu) fields.cpuKey = entry.key;
        const int64_t code = CellNumber(cpu);
        if (code >= 0 && code <= 255) cpuCode = static_cast<int>(code);
    });
    Attempt([&] { fields.dependency = cell("Dependency"); });
    Attempt([&] { fields.queuePriority = cell("Queue Priority"); });
    Attempt([&] { fields.schedule = ReadDate(cell("SchTime")); });
    return fields;
}

std::string BuildRepeatText(const TaskPropertyFields& fields) {
    RepeatRule rule;
    rule.Times = static_cast<int32_t>(Val(fields.times));
    for (size_t day = 0; day < fields.monthDays.size(); ++day)
        rule.MonthDays[day] = fields.monthDays[day] ? 'X' : ' ';
    for (size_t day = 0; day < fields.weekDays.size(); ++day)
        rule.WeekDays[day] = fields.weekDays[day] ? 'X' : ' ';
    rule.EveryHours = static_cast<int32_t>(Val(fields.hours));
    rule.EveryMinutes = static_cast<int32_t>(Val(fields.minutes));
    rule.Mode = fields.dayCode;
    return FormatRepeat(rule);
}

void WriteTaskProperties(Server& server, const std::string& taskKey,
                         const TaskPropertyFields& fields, int openedCpuCode,
                         const PropertyEdits& edits) {
    WorkingTables& tables = server.tables;
    auto write = [&](const char* column, const std::string& value) {
        Attempt([&] { SetCell(tables, kTaskTable, taskKey, column, value); });
    };
    const std::string repeat = BuildRepeatText(fields);
    Attempt([&] {
        const int64_t code = CellNumber(Mid(fields.cpuKey, 1));
        if (code != openedCpuCode) SetRunningPriority(server, taskKey, static_cast<int32_t>(code));
    });
    write("Dependency", fields.dependency);
    if (edits.priorityChanged)
        Attempt([&] { write("Queue Priority", ZeroPad(CellNumber(fields.queuePriority), 6)); });
    if (edits.scheduleChanged) {
        write("SchTime", FormatDateTime(fields.schedule));
        write("Repeat", repeat);
        write("CurRepeat", "0");
    }
}

std::string PropertiesPagePath(const std::string& rf, const std::string& jobReport, bool report) {
    return WithBackslash(rf) + (report ? jobReport + ".txt" : std::string("Diag1.txt"));
}

std::string FileNotAvailableText(const std::string& path) {
    return "File \"" + path + "\" Is Not Available.";
}

StepsToolWin::StepsToolWin(Server& server, std::function<void()> refreshList, QWidget* parent)
    : QDialog(parent), server_(server), refreshList_(std::move(refreshList)) {
    setObjectName(Q("StepsToolWin"));
    setWindowTitle(Q("Properties"));
    setModal(true);

    QFont courier(Q("Courier New"));
    courier.setStyleHint(QFont::TypeWriter);
    RichTextBox1 = NewFileTextBox(courier);

    pages_ = new QStackedWidget;
    pages_->addWidget(BuildPicture2());
    pages_->addWidget(RichTextBox1);

    Command2 = new QPushButton(Q("&OK"));
    Command2->setObjectName(Q("Command2"));
    Command2->setDefault(true);
    Command1 = new QPushButton(Q("&Cancel"));
    Command1->setObjectName(Q("Command1"));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command2);
    buttons->addWidget(Command1);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(BuildToolbar());
    layout->addWidget(pages_, 1);
    layout->addLayout(buttons);
    // Wide enough for a report's lines of 80 characters.
    resize(std::max(sizeHint().width(),
                    RichTextBox1->fontMetrics().horizontalAdvance(QString(84, QLatin1Char('0')))),
           560);

    connect(Command2, &QPushButton::clicked, this, &StepsToolWin::Command2_Click);
    connect(Command1, &QPushButton::clicked, this, &StepsToolWin::Command1_Click);
    ConnectEdits();
}

QToolBar* StepsToolWin::BuildToolbar() {
    auto* toolbar = new QToolBar(this);
    toolbar->setObjectName(Q("Toolbar1"));
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->setIconSize(QSize(16, 16));
    auto* group = new QActionGroup(toolbar);
    for (const ToolButton& button : kToolButtons) {
        // The image Task: the task's sheet, as the main window's Properties button shows it.
        QAction* action = toolbar->addAction(ImageIcon(Q("prop")), Q(button.caption));
        action->setObjectName(Q(button.key));
        action->setToolTip(Q(button.caption));
        action->setCheckable(true);
        action->setActionGroup(group);
        const QString key = Q(button.key);
        connect(action, &QAction::triggered, this, [this, key] { Toolbar1_ButtonClick(key); });
    }
    return toolbar;
}

QTreeWidget* StepsToolWin::BuildDayList(const char* name, const char* column) {
    auto* list = new QTreeWidget;
    list->setObjectName(Q(name));
    list->setHeaderLabels({Q(column)});
    list->setRootIsDecorated(false);
    list->setUniformRowHeights(true);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    return list;
}

QWidget* StepsToolWin::BuildPicture2() {
    Picture2 = new QWidget;
    Picture2->setObjectName(Q("Picture2"));

    ZkQPrio = MakeField("ZkQPrio", 9, true, 9);
    ImageCombo1 = new QComboBox;
    ImageCombo1->setObjectName(Q("ImageCombo1"));
    for (const PriorityEntry& entry : FillPriorityList(true))
        ImageCombo1->addItem(Q(entry.name), Q(entry.key));
    ImageCombo1->setCurrentIndex(ImageCombo1->findData(Q("P22")));
    ZkDep = MakeField("ZkDep", 8, false, 12);

    DTPicker2 = new QDateEdit;
    DTPicker2->setObjectName(Q("DTPicker2"));
    DTPicker2->setCalendarPopup(true);
    DTPicker2->setDisplayFormat(DatePattern());
    DTPicker1 = new QTimeEdit;
    DTPicker1->setObjectName(Q("DTPicker1"));
    DTPicker1->setDisplayFormat(TimePattern());
    Command3 = new QPushButton(Q("<< Now >>"));
    Command3->setObjectName(Q("Command3"));
    Command3->setAutoDefault(false);
    SetPickers(server_.clock.Now());

    Text12 = MakeField("Text12", 4, true, 4);
    Text12->setToolTip(Q("Times"));
    Text13 = MakeField("Text13", 2, true, 2);
    Text14 = MakeField("Text14", 2, true, 2);
    for (QLineEdit* field : {ZkQPrio, Text12, Text13, Text14}) field->installEventFilter(this);
    ImageCombo3 = new QComboBox;
    ImageCombo3->setObjectName(Q("ImageCombo3"));
    for (const DayCodeEntry& entry : kDayCodes) ImageCombo3->addItem(Q(entry.text), Q(entry.key));
    ImageCombo3->setCurrentIndex(0);

    ListView2 = BuildDayList("ListView2", "Day in Month");
    for (int day = 1; day <= 31; ++day) {
        const QString text = QStringLiteral("%1").arg(day, 2, 10, QLatin1Char('0'));
        auto* item = new QTreeWidgetItem(ListView2, {text});
        item->setData(0, Qt::UserRole, Q("D") + text);
    }
    ListView3 = BuildDayList("ListView3", "Day in Week");
    const QLocale locale;
    for (int day : {7, 1, 2, 3, 4, 5, 6}) {  // Sunday first
        const QString text = locale.dayName(day, QLocale::LongFormat);
        auto* item = new QTreeWidgetItem(ListView3, {text});
        item->setData(0, Qt::UserRole, Q("D") + text);
    }
    for (QTreeWidget* list : {ListView2, ListView3})
        for (int row = 0; row < list->topLevelItemCount(); ++row)
            list->topLevelItem(row)->setCheckState(0, Qt::Unchecked);

    auto* form = new QGridLayout;
    int row = 0;
    auto addRow = [&](const char* caption, std::initializer_list<QWidget*> widgets) {
        form->addWidget(new QLabel(Q(caption)), row, 0);
        auto* line = new QHBoxLayout;
        for (QWidget* widget : widgets) line->addWidget(widget);
        line->addStretch();
        form->addLayout(line, row++, 1);
    };
    addRow("Task Queue Priority:", {ZkQPrio});
    addRow("Task CPU Priority:", {ImageCombo1});
    addRow("Dependent:", {ZkDep});
    addRow("Scheduled Time:", {DTPicker2, DTPicker1, Command3});
    addRow("Repeat Task:", {Text12, new QLabel(Q("Times"))});
    addRow("Every:", {Text13, new QLabel(Q("Hours")), Text14, new QLabel(Q("Minutes"))});
    addRow("Execute on:", {ImageCombo3});
    form->setColumnStretch(1, 1);

    auto* monthGroup = new QGroupBox(Q("Run On Month Day"));
    auto* monthLayout = new QVBoxLayout(monthGroup);
    monthLayout->addWidget(ListView2);
    // A blank caption lines the week days' frame up with the month days' beside it.
    auto* weekGroup = new QGroupBox(Q(" "));
    auto* weekLayout = new QVBoxLayout(weekGroup);
    weekLayout->addWidget(ListView3);
    auto* lists = new QHBoxLayout;
    lists->addWidget(monthGroup, 1);
    lists->addWidget(weekGroup, 1);

    auto* page = new QVBoxLayout(Picture2);
    page->setContentsMargins(0, 0, 0, 0);
    page->addLayout(form);
    page->addLayout(lists, 1);
    return Picture2;
}

void StepsToolWin::ConnectEdits() {
    auto edited = [this](bool schedule, bool priority) {
        return [this, schedule, priority] {
            edits_.changed = true;
            edits_.scheduleChanged |= schedule;
            edits_.priorityChanged |= priority;
        };
    };
    connect(ZkQPrio, &QLineEdit::textChanged, this, edited(false, true));
    connect(ImageCombo1, &QComboBox::currentIndexChanged, this, edited(false, false));
    connect(ZkDep, &QLineEdit::textChanged, this, edited(false, false));
    connect(DTPicker2, &QDateEdit::dateChanged, this, edited(true, false));
    connect(DTPicker1, &QTimeEdit::timeChanged, this, edited(true, false));
    for (QLineEdit* field : {Text12, Text13, Text14})
        connect(field, &QLineEdit::textChanged, this, edited(true, false));
    connect(ImageCombo3, &QComboBox::currentIndexChanged, this, edited(true, false));
    for (QTreeWidget* list : {ListView2, ListView3})
        connect(list, &QTreeWidget::itemChanged, this, edited(true, false));
    connect(Command3, &QPushButton::clicked, this, &StepsToolWin::Command3_Click);
}

// Leaving a number field empty gives it "0".
bool StepsToolWin::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::FocusOut)
        if (auto* field = qobject_cast<QLineEdit*>(watched); field && field->text().isEmpty())
            field->setText(Q("0"));
    return QDialog::eventFilter(watched, event);
}

void StepsToolWin::SetPickers(VqDate date) {
    const DateParts parts = SplitDate(date);
    DTPicker2->setDate(QDate(parts.year, parts.month, parts.day));
    DTPicker1->setTime(QTime(parts.hour, parts.minute, parts.second));
}

void StepsToolWin::PropKey(const std::string& key) {
    taskKey_ = key;
    ShowFields(ReadTaskProperties(server_.tables, key, server_.clock.Now(), cpuCode_));
    Toolbar1_ButtonClick(Q("General"));
    edits_ = {};
}

void StepsToolWin::ShowFields(const TaskPropertyFields& fields) {
    ShowText(Text12, fields.times);
    for (size_t day = 0; day < fields.monthDays.size(); ++day)
        ListView2->topLevelItem(static_cast<int>(day))
            ->setCheckState(0, fields.monthDays[day] ? Qt::Checked : Qt::Unchecked);
    for (size_t day = 0; day < fields.weekDays.size(); ++day)
        ListView3->topLevelItem(static_cast<int>(day))
            ->setCheckState(0, fields.weekDays[day] ? Qt::Checked : Qt::Unchecked);
    ShowText(Text13, fields.hours);
    ShowText(Text14, fields.minutes);
    ImageCombo3->setCurrentIndex(ImageCombo3->findData(Q(fields.dayCode)));
    ImageCombo1->setCurrentIndex(ImageCombo1->findData(Q(fields.cpuKey)));
    ShowText(ZkDep, fields.dependency);
    ShowText(ZkQPrio, fields.queuePriority);
    SetPickers(fields.schedule);
}

TaskPropertyFields StepsToolWin::FieldsShown() const {
    TaskPropertyFields fields;
    fields.times = Text12->text().toStdString();
    for (size_t day = 0; day < fields.monthDays.size(); ++day)
        fields.monthDays[day] =
            ListView2->topLevelItem(static_cast<int>(day))->checkState(0) == Qt::Checked;
    for (size_t day = 0; day < fields.weekDays.size(); ++day)
        fields.weekDays[day] =
            ListView3->topLevelItem(static_cast<int>(day))->checkState(0) == Qt::Checked;
    fields.hours = Text13->text().toStdString();
    fields.minutes = Text14->text().toStdString();
    fields.dayCode = ImageCombo3->currentData().toString().toStdString();
    fields.cpuKey = ImageCombo1->currentData().toString().toStdString();
    fields.dependency = ZkDep->text().toStdString();
    fields.queuePriority = ZkQPrio->text().toStdString();
    const QDate date = DTPicker2->date();
    const QTime time = DTPicker1->time();
    fields.schedule = MakeDate(
        {date.year(), date.month(), date.day(), time.hour(), time.minute(), time.second(), 0});
    return fields;
}

void StepsToolWin::Toolbar1_ButtonClick(const QString& key) {
    // The button of the page on show stands pressed.
    if (auto* action = findChild<QAction*>(key)) action->setChecked(true);
    if (key == Q("General")) {
        pages_->setCurrentWidget(Picture2);
        return;
    }
    ShowFile(key == Q("Report"));
}

// The file is read at each click, so a running task shows what stood in it at that moment.
void StepsToolWin::ShowFile(bool report) {
    std::string rf, jobReport;
    Attempt([&] { rf = GetCell(server_.tables, kTaskTable, taskKey_, "RF"); });
    Attempt([&] { jobReport = GetCell(server_.tables, kTaskTable, taskKey_, "JobReport"); });
    const std::string path = PropertiesPagePath(rf, jobReport, report);
    std::string bytes;
    const bool loaded = ReadWholeFile(path, bytes);
    // A file keeps its columns; the message is wrapped so that the whole path can be read.
    RichTextBox1->setLineWrapMode(loaded ? QPlainTextEdit::NoWrap : QPlainTextEdit::WidgetWidth);
    RichTextBox1->setPlainText(loaded ? FileTextForTheBox(bytes) : Q(FileNotAvailableText(path)));
    pages_->setCurrentWidget(RichTextBox1);
    RichTextBox1->setFocus();
}

void StepsToolWin::Command3_Click() {
    SetPickers(server_.clock.Now());
    edits_.changed = edits_.scheduleChanged = true;
}

void StepsToolWin::Command2_Click() {
    if (edits_.changed) {
        WriteTaskProperties(server_, taskKey_, FieldsShown(), cpuCode_, edits_);
        edits_.priorityChanged = edits_.scheduleChanged = false;
        if (refreshList_) refreshList_();
    }
    accept();
}

void StepsToolWin::Command1_Click() { reject(); }

void ShowPropertiesWindow(QWidget* parent, Server& server, const std::string& taskKey,
                          std::function<void()> refreshList) {
    StepsToolWin window(server, std::move(refreshList), parent);
    window.PropKey(taskKey);
    window.exec();
}

}  // namespace vq
