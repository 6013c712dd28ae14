#pragma once
// The Properties window: one task's queue priority, CPU priority, dependency, scheduled time
// and repeat, edited on a snapshot of its cells taken at opening and written back on OK only
// as far as the edits reach; and the task's report and diagnostic file as they stand at the
// click of their button.
#include <QDialog>
#include <array>
#include <functional>
#include <string>

#include "calendar/DateTime.h"

class QAction;
class QComboBox;
class QDateEdit;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;
class QTimeEdit;
class QToolBar;
class QTreeWidget;

namespace vq {

struct Server;
struct WorkingTables;

// What the window's fields show of a task. The defaults are the fields as the window makes
// them, which a cell that can't be read leaves standing.
struct TaskPropertyFields {
    std::string times;                 // Text12: the count of runs, without leading zeros
    std::array<bool, 31> monthDays{};  // ListView2, day 1 first
    std::array<bool, 7> weekDays{};    // ListView3, Sunday first
    std::string hours, minutes;        // Text13 and Text14, as the repeat text holds them
    std::string dayCode = "ED";        // the key of ImageCombo3's entry
    std::string cpuKey = "P22";        // the key of ImageCombo1's entry
    std::string dependency;            // ZkDep
    std::string queuePriority;         // ZkQPrio, the raw cell with its zeros
    VqDate schedule = 0;               // the two pickers
};

// What was edited since the opening.
struct PropertyEdits {
    bool changed = false;
    bool scheduleChanged = false;
    bool priorityChanged = false;
};

// The five day codes of ImageCombo3 with their texts, in the list's order.
struct DayCodeEntry {
    const char* key;
    const char* text;
};
inline constexpr DayCodeEntry kDayCodes[] = {{"ED", "Every Day"},
                                             {"WD", "Working Day"},
                                             {"WDH", "Working Day Exept Holidays"},
                                             {"SS", "Saturday And Sunday"},
                                             {"SSH", "Saturday, Sunday And Holidays"}};

// The fields of a task read from its cells, each on its own: a cell that is missing or doesn't
// read leaves its field at the default and the others are read all the same. `cpuCode` takes
// the CPU cell as a number, 0 when it isn't one. `now` is what the pickers show by default.
TaskPropertyFields ReadTaskProperties(WorkingTables& tables, const std::string& taskKey, VqDate now,
                                      int& cpuCode);
// The repeat text that the fields make: an empty number field counts as 0.
std::string BuildRepeatText(const TaskPropertyFields& fields);
// Writes what `edits` say was edited, in the window's order; a step that fails is passed over
// and the next one goes on. A CPU priority other than `openedCpuCode` goes through
// SetRunningPriority, so that a running task hears of it.
void WriteTaskProperties(Server& server, const std::string& taskKey,
                         const TaskPropertyFields& fields, int openedCpuCode,
                         const PropertyEdits& edits);
// The file that the Report ("Report") or Diag page shows: the task's folder `rf` with a
// separator, and the report's name with ".txt" or "Diag1.txt".
std::string PropertiesPagePath(const std::string& rf, const std::string& jobReport, bool report);
// What RichTextBox1 shows when the file can't be loaded.
std::string FileNotAvailableText(const std::string& path);

class StepsToolWin : public QDialog {
    Q_OBJECT
  public:
    // `refreshList` is the main window's screen refresh, run after OK has written.
    StepsToolWin(Server& server, std::function<void()> refreshList, QWidget* parent = nullptr);

    // Loads the task's cells into the fields and shows the General page; what the loading
    // changed counts as no edit.
    void PropKey(const std::string& key);

    void Toolbar1_ButtonClick(const QString& key);
    void Command2_Click();  // "&OK"
    void Command1_Click();  // "&Cancel"
    void Command3_Click();  // "<< Now >>"

    const PropertyEdits& Edits() const { return edits_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QToolBar* BuildToolbar();
    QWidget* BuildPicture2();
    QTreeWidget* BuildDayList(const char* name, const char* column);
    void ConnectEdits();
    void ShowFields(const TaskPropertyFields& fields);
    TaskPropertyFields FieldsShown() const;
    void ShowFile(bool report);
    void SetPickers(VqDate date);

    Server& server_;
    std::function<void()> refreshList_;
    std::string taskKey_;
    int cpuCode_ = 0;
    PropertyEdits edits_;

    QStackedWidget* pages_ = nullptr;
    QWidget* Picture2 = nullptr;
    QPlainTextEdit* RichTextBox1 = nullptr;
    QLineEdit* ZkQPrio = nullptr;
    QComboBox* ImageCombo1 = nullptr;
    QLineEdit* ZkDep = nullptr;
    QDateEdit* DTPicker2 = nullptr;
    QTimeEdit* DTPicker1 = nullptr;
    QPushButton* Command3 = nullptr;
    QLineEdit* Text12 = nullptr;
    QLineEdit* Text13 = nullptr;
    QLineEdit* Text14 = nullptr;
    QComboBox* ImageCombo3 = nullptr;
    QTreeWidget* ListView2 = nullptr;
    QTreeWidget* ListView3 = nullptr;
    QPushButton* Command2 = nullptr;
    QPushButton* Command1 = nullptr;
};

// "&Properties" of the main window: the window for the task, modal over `parent`.
void ShowPropertiesWindow(QWidget* parent, Server& server, const std::string& taskKey,
                          std::function<void()> refreshList);

}  // namespace vq
