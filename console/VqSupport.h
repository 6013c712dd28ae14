#pragma once
// The support page: a letter to the reader, a short form about the computers in use and the
// problem, and the Trouble Ticket made from it, to the clipboard or to a file.
#include <QDialog>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "console/SmallAids.h"

class QCheckBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTextEdit;

namespace vq {

struct Server;

inline const std::string kSupportMailAddress = "orvantis-support@halvenor.example";

// What the form holds.
struct TicketForm {
    std::string email;
    std::array<std::string, 4> counts;  // servers existing, planned; workstations existing, planned
    std::array<bool, 5> serverSystems{};
    std::array<bool, 6> workstationSystems{};
    std::string problem;
};

// The field a refused ticket sends the focus to.
enum class TicketField { None, Email, Counts, ServerSystems, WorkstationSystems, Problem };
struct TicketCheck {
    TicketField focus = TicketField::None;
    std::string message;  // empty when the form makes a ticket
};
// The checks in their order; the first that fails refuses the ticket.
TicketCheck CheckTicket(const TicketForm& form);
// The ticket's text, each line ending in CR LF, with `idLines` between "<ID>" and "</ID>".
std::string TroubleTicketText(const TicketForm& form, const std::vector<std::string>& idLines);
// The lines that identify this installation to the support desk.
std::vector<std::string> InstallationIdLines(const Server& server);

class VqSupport : public QDialog {
    Q_OBJECT
  public:
    explicit VqSupport(Server& server, QWidget* parent = nullptr);

    // The ticket of the form, or the empty text after the message of the first check that
    // refused it, the focus in its field.
    std::string MakeTicket();
    void Command1_Click();  // to the clipboard
    void Command3_Click();  // to a file
    // Asks for the ticket's file name; the file chooser unless replaced.
    std::function<std::string()> ChooseTicketFile;

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

  private:
    TicketForm Form() const;

    Server& server_;
    VqLine lineTop_, lineBottom_;
    QLabel* Label1;
    QTextEdit* Text4;
    QLineEdit* Text1;
    QLabel* Label5;
    QGridLayout* grid_;
    std::array<QLabel*, 3> heads_{};
    std::array<QLineEdit*, 4> Text2{};
    std::array<QCheckBox*, 5> Check1{};
    std::array<QCheckBox*, 6> Check2{};
    QPlainTextEdit* Text3;
    QPushButton *Command1, *Command3, *Command2;
};

// "Orvantis Support": the page, modal over `parent`.
void ShowSupportPage(QWidget* parent, Server& server);

}  // namespace vq
