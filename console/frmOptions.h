#pragma once
// The Options dialog: the server's settings, the task classes and ponders, the non-working
// days and the columns of the task list, on six tabs. Nothing reaches the store, Classes.dat or
// NonWork.dat before OK or Apply; the classes are edited in a working copy.
#include <QDialog>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "storage/Classes.h"

class QCalendarWidget;
class QCheckBox;
class QComboBox;
class QDate;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;
class QTimeEdit;
class QTreeWidget;
class QTreeWidgetItem;

namespace vq {

struct Server;
class Form1;

// A ponder as typed: a number read with "." or "," as its decimal point; above 1 it is 1, a
// text that isn't a number is 0.
double LimitPonder(const std::string& text);
// A ponder as a field shows it: the shortest text that reads back as the same number.
std::string PonderText(double ponder);
// The maximum system units of a class as the dialog shows them: CPU seconds, memory and I/O
// count weighted by the three ponders and rounded, "0" when it doesn't fit.
std::string ClassUnitsText(int64_t cpuSeconds, const std::string& memory, const std::string& io,
                           const std::array<double, 3>& ponders);
// NonWork.dat for these dates: each quoted on a line of its own.
std::string NonWorkFileText(const std::vector<std::string>& dates);

class frmOptions : public QDialog {
    Q_OBJECT
  public:
    // `columnsApplied` runs when Apply has written the column choice: it saves the widths,
    // rebuilds the task list's columns and refreshes the screen.
    frmOptions(Server& server, std::function<void()> columnsApplied, QWidget* parent = nullptr);

    // Apply in its twelve steps; false when something failed or the passwords differ.
    bool Apply();
    void cmdOK_Click();
    void cmdHelp_Click();
    // The working copy of the classes and ponders, as the fields have stored them so far.
    const ClassData& WorkingCopy() const { return work_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QWidget* BuildGeneralPage();
    QWidget* BuildColumnsPage();
    QWidget* BuildHolidaysPage();
    QWidget* BuildLogonPage();
    QWidget* BuildMiscPage();
    QWidget* BuildClassesPage();
    void LoadSettings();
    void LoadCH();
    // A numeric field with its key filter, its length and the check when it is left.
    QLineEdit* NumberField(const QString& name, int length, bool ponder = false);
    QLineEdit* TextField(const QString& name);
    // The check of a field when the focus leaves it: false when it refuses (the focus stays).
    bool LeaveField(QLineEdit* field, bool beep);

    void ShowClass(int index);
    void StoreClassFields();
    void RecomputeSum();
    void LogOnC_Click();
    void MonthView1_DateClick(const QDate& date);
    void DTs_Click(QTreeWidgetItem* item);
    void Command1_Click();
    void BoldDates();
    void EnterHolidaysTab();
    std::vector<std::string> ListedDates() const;
    void ApplySteps(bool& passwordsDiffer);

    Server& server_;
    std::function<void()> columnsApplied_;
    ClassData work_;
    int classShown_ = -1;
    bool recomputing_ = false;
    std::string helpFile_;

    QTabWidget* tbsOptions;
    QPushButton *cmdOK, *cmdCancel, *cmdApply, *cmdHelp;
    // General.
    QLineEdit* Text1;
    QComboBox *ImageCombo1, *ImageCombo2, *ImageCombo3;
    std::array<QLineEdit*, 2> Buffer{};
    std::array<QLineEdit*, 3> FS{};  // FS(1) and FS(2); [0] is unused
    QCheckBox* chkCaptureScreen;
    QLineEdit* txtTimeDelay;
    QWidget* UpDown3;
    QLabel* lblTimeDelay;
    // Columns.
    QGroupBox* fraColumns;
    std::vector<QCheckBox*> Check1;
    // Non-working days.
    QCalendarWidget* MonthView1;
    QTreeWidget* DTs;
    QPushButton* Command1;
    // Auto Logon.
    QCheckBox *StartQC, *Check2, *LogOnC;
    QGroupBox* fraLogon;
    QLineEdit *txtD, *txtU, *txtP, *txtCP;
    // Misc.
    std::array<QLineEdit*, 4> JQP{};
    std::array<QLineEdit*, 3> Misc{};
    QLineEdit* Text2;
    // Classes.
    QComboBox *ImageCombo5, *ImageCombo4;
    std::array<QLineEdit*, 5> TxTC{};
    std::array<QLineEdit*, 4> TxTPon{};
    QTimeEdit *DTPicker1, *DTPicker2;
    QLineEdit *CancelSysUnits, *CancelTime;
};

// "Options" from the main window: the dialog, modal over it; the column choice rebuilds its
// task list.
void ShowOptionsDialog(Form1& window, Server& server);

}  // namespace vq
