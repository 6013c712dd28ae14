#include "console/VqSupport.h"

#include <sys/utsname.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFocusEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QTextEdit>
#include <QTimer>
#include <QVBoxLayout>

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Files.h"

namespace vq {
namespace {

constexpr int kMostEmail = 500;
constexpr int kMostProblem = 65535;
constexpr const char* kServerSystems[] = {"2000", "XP", "NT 4.0", "2003", "Other"};
constexpr const char* kWorkstationSystems[] = {"2000", "XP", "NT 4.0", "Me", "98", "Other"};

const char* const kLetter[] = {
    "Dear Orvantis customer,",
    "We are aware of the fact that our product should serve your needs. Building system that "
    "enables you to automatically perform your business functions is complex process, where we "
    "should work together to achieve optimal results. Our Trouble Ticket System was designed to "
    "help you.",
    "What we can do for you? You are probably on the other side of the world, living in "
    "environment, where some vendors are helping you to build your information system. By "
    "describing your working environment and needs we can help you to create the shopping list "
    "to buy our products as well as other necessary items. Next we can help you with advice how "
    "to use all system components on the best possible way to resolve your problems. Please "
    "fill in out very short formulary, which describes you hardware platform and add short "
    "description of your environment (technical environment, you are working with vendors or by "
    "yourself etc.) and shortly describe your business goals or technical problem. Please copy "
    "the Trouble Ticket to clipboard and copy the contents into you mailing system or save your "
    "Trouble Ticket into the file and send it by E-mail to us as attachment. We will try to "
    "answer you as soon as possible.",
    "Your Orvantis Development Team",
};

template <size_t N>
std::string CheckedNames(const std::array<bool, N>& checked, const char* const (&names)[N]) {
    std::string joined;
    for (size_t i = 0; i < N; ++i)
        if (checked[i]) joined += (joined.empty() ? "" : "-") + std::string(names[i]);
    return joined;
}

template <size_t N>
bool AnyChecked(const std::array<bool, N>& checked) {
    for (bool c : checked)
        if (c) return true;
    return false;
}

// Line ends of a text as the ticket has them: CR LF.
std::string WithCrLf(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out += '\r';
        out += text[i];
    }
    return out;
}

QLabel* NewLabel(const char* text, const char* name) {
    auto* label = new QLabel(QString::fromUtf8(text));
    label->setObjectName(QString::fromLatin1(name));
    return label;
}

QString Indexed(const char* name, size_t index) {
    return QStringLiteral("%1(%2)").arg(QString::fromLatin1(name)).arg(index);
}

}  // namespace

TicketCheck CheckTicket(const TicketForm& form) {
    if (form.email.find('@') == std::string::npos)
        return {TicketField::Email,
                "Please enter your e-mail where do you want to recive our reply."};
    auto count = [&form](size_t i) { return Val(form.counts[i]); };
    if (count(0) == 0 && count(1) == 0 && count(2) == 0 && count(3) == 0)
        return {TicketField::Counts, "You have to enter at least one server or workstation."};
    const std::string noSystem = "You have to enter at least one operating system.";
    if ((count(0) != 0 || count(1) != 0) && !AnyChecked(form.serverSystems))
        return {TicketField::ServerSystems, noSystem};
    if ((count(2) != 0 || count(3) != 0) && !AnyChecked(form.workstationSystems))
        return {TicketField::WorkstationSystems, noSystem};
    if (form.problem.empty()) return {TicketField::Problem, "Please describe your problem."};
    return {};
}

std::string TroubleTicketText(const TicketForm& form, const std::vector<std::string>& idLines) {
    std::vector<std::string> lines = {kSupportMailAddress, ">> Orvantis Trouble Ticket <<",
                                      form.email, kAppTitle, "<ID>"};
    lines.insert(lines.end(), idLines.begin(), idLines.end());
    lines.push_back("</ID>");
    lines.push_back("Hardware:");
    lines.push_back("Servers: " + form.counts[0] + ", " + form.counts[1] + ", " +
                    CheckedNames(form.serverSystems, kServerSystems));
    lines.push_back("Workstations: " + form.counts[2] + ", " + form.counts[3] + ", " +
                    CheckedNames(form.workstationSystems, kWorkstationSystems));
    lines.push_back(WithCrLf(form.problem));
    lines.push_back("<< Orvantis Trouble Ticket >>");
    std::string text;
    for (const std::string& line : lines) text += line + "\r\n";
    return text;
}

std::vector<std::string> InstallationIdLines(const Server& server) {
    std::vector<std::string> lines = {"Version: " + VersionNumberText(),
                                      "Computer: " + server.ComputerName};
    struct utsname system {};
    if (::uname(&system) == 0)
        lines.push_back(std::string("System: ") + system.sysname + " " + system.release + " " +
                        system.machine);
    return lines;
}

VqSupport::VqSupport(Server& server, QWidget* parent) : QDialog(parent), server_(server) {
    setObjectName(QStringLiteral("VqSupport"));
    setWindowTitle(QStringLiteral("Orvantis Support"));
    setModal(true);
    ChooseTicketFile = [this] {
        return ComDial(this, QStringLiteral("Trouble Ticket (*.txt)"), QString(),
                       QStringLiteral("Please select file name for your Trouble Ticket file"),
                       false);
    };

    Label1 = NewLabel("Welcome to Orvantis Support page!", "Label1");
    QFont heading = Label1->font();
    heading.setBold(true);
    heading.setPointSizeF(heading.pointSizeF() * 1.3);
    Label1->setFont(heading);
    Text4 = new QTextEdit;
    Text4->setObjectName(QStringLiteral("Text4"));
    Text4->setReadOnly(true);
    Text4->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    QString letter;
    for (const char* part : kLetter)
        letter += (letter.isEmpty() ? QString() : QStringLiteral("\n\n")) + QString::fromUtf8(part);
    Text4->setPlainText(letter);
    Text4->setMinimumHeight(140);

    Text1 = new QLineEdit;
    Text1->setObjectName(QStringLiteral("Text1"));
    Text1->setMaxLength(kMostEmail);
    Label5 = NewLabel("", "Label5");
    Label5->setText(QStringLiteral(
        "Please fill out our hardware questionary about your network or standalone computer:"));
    Label5->setWordWrap(true);

    grid_ = new QGridLayout;
    QGridLayout* grid = grid_;
    const std::pair<const char*, const char*> heads[] = {{"Computer Type", "Label11"},
                                                         {"Number of existing", "Label8"},
                                                         {"Number of planned", "Label9"}};
    for (int column = 0; column < 3; ++column) {
        heads_[static_cast<size_t>(column)] = NewLabel(heads[column].first, heads[column].second);
        grid->addWidget(heads_[static_cast<size_t>(column)], 0, column);
    }
    grid->addWidget(NewLabel("Windows Operating Systems", "Label10"), 0, 3);
    auto* serverBoxes = new QHBoxLayout;
    auto* workstationBoxes = new QHBoxLayout;
    grid->addLayout(serverBoxes, 1, 3);
    grid->addLayout(workstationBoxes, 2, 3);
    grid->addWidget(NewLabel("Servers:", "Label6"), 1, 0);
    grid->addWidget(NewLabel("Workstations:", "Label7"), 2, 0);
    for (size_t i = 0; i < Text2.size(); ++i) {
        Text2[i] = new QLineEdit(QStringLiteral("0"));
        Text2[i]->setObjectName(Indexed("Text2", i));
        Text2[i]->setMaxLength(4);
        Text2[i]->setValidator(new QRegularExpressionValidator(
            QRegularExpression(QStringLiteral("[0-9]*")), Text2[i]));
        Text2[i]->installEventFilter(this);
        grid->addWidget(Text2[i], 1 + static_cast<int>(i / 2), 1 + static_cast<int>(i % 2));
    }
    for (size_t i = 0; i < Check1.size(); ++i) {
        Check1[i] = new QCheckBox(QString::fromUtf8(kServerSystems[i]));
        Check1[i]->setObjectName(Indexed("Check1", i));
        serverBoxes->addWidget(Check1[i]);
    }
    for (size_t i = 0; i < Check2.size(); ++i) {
        Check2[i] = new QCheckBox(QString::fromUtf8(kWorkstationSystems[i]));
        Check2[i]->setObjectName(Indexed("Check2", i));
        workstationBoxes->addWidget(Check2[i]);
    }
    serverBoxes->addStretch();
    workstationBoxes->addStretch();
    grid->setColumnStretch(3, 1);
    grid->setHorizontalSpacing(10);

    Text3 = new QPlainTextEdit;
    Text3->setObjectName(QStringLiteral("Text3"));
    Text3->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    Text3->setMinimumHeight(110);
    // At most 65535 characters: what goes past is cut off.
    connect(Text3, &QPlainTextEdit::textChanged, this, [this] {
        const QString text = Text3->toPlainText();
        if (text.size() > kMostProblem) Text3->setPlainText(text.left(kMostProblem));
    });

    auto button = [](const char* caption, const char* name) {
        auto* b = new QPushButton(QString::fromUtf8(caption));
        b->setObjectName(QString::fromLatin1(name));
        b->setAutoDefault(false);
        return b;
    };
    Command1 = button("Send Trouble Ticket To Clipboard", "Command1");
    Command3 = button("Copy Trouble Ticket To File", "Command3");
    Command2 = button("Close", "Command2");
    connect(Command1, &QPushButton::clicked, this, &VqSupport::Command1_Click);
    connect(Command3, &QPushButton::clicked, this, &VqSupport::Command3_Click);
    connect(Command2, &QPushButton::clicked, this, &QDialog::reject);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(Command1);
    buttons->addWidget(Command3);
    buttons->addStretch();
    buttons->addWidget(Command2);

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(6);
    layout->addWidget(Label1);
    layout->addSpacing(8);
    layout->addWidget(Text4, 2);
    layout->addWidget(NewLabel("Please enter your e-mail:", "Label3"));
    layout->addWidget(Text1);
    layout->addSpacing(6);
    layout->addWidget(Label5);
    layout->addLayout(grid);
    layout->addSpacing(6);
    layout->addWidget(NewLabel("Please describe your problem or question:", "Label12"));
    layout->addWidget(Text3, 1);
    layout->addSpacing(8);
    layout->addLayout(buttons);
    resize(720, 640);
    // The page can't be made smaller than its controls need.
    FixResize(*this, layout->minimumSize().expandedTo(QSize(600, 560)));
}

bool VqSupport::eventFilter(QObject* watched, QEvent* event) {
    auto* field = qobject_cast<QLineEdit*>(watched);
    if (field && event->type() == QEvent::FocusIn)
        QTimer::singleShot(0, field, [field] { field->selectAll(); });
    if (field && event->type() == QEvent::FocusOut && field->text().isEmpty())
        field->setText(QStringLiteral("0"));
    return QDialog::eventFilter(watched, event);
}

// The heads of the columns keep their whole text in the font that the page shows them in.
void VqSupport::showEvent(QShowEvent* event) {
    for (size_t column = 0; column < heads_.size(); ++column)
        grid_->setColumnMinimumWidth(
            static_cast<int>(column),
            heads_[column]->fontMetrics().horizontalAdvance(heads_[column]->text()) + 8);
    QDialog::showEvent(event);
}

// The etched lines under the heading and above the buttons run the page's width.
void VqSupport::resizeEvent(QResizeEvent* event) {
    QDialog::resizeEvent(event);
    const int margin = layout()->contentsMargins().left();
    lineTop_.InitVqLine(QPoint(margin, Label1->geometry().bottom() + 5), this, Qt::Horizontal,
                        width() - 2 * margin);
    lineBottom_.InitVqLine(QPoint(margin, Command2->geometry().top() - 8), this, Qt::Horizontal,
                           width() - 2 * margin);
}

TicketForm VqSupport::Form() const {
    TicketForm form;
    form.email = Text1->text().toStdString();
    for (size_t i = 0; i < Text2.size(); ++i) form.counts[i] = Text2[i]->text().toStdString();
    for (size_t i = 0; i < Check1.size(); ++i) form.serverSystems[i] = Check1[i]->isChecked();
    for (size_t i = 0; i < Check2.size(); ++i) form.workstationSystems[i] = Check2[i]->isChecked();
    form.problem = Text3->toPlainText().toStdString();
    return form;
}

std::string VqSupport::MakeTicket() {
    try {
        const TicketForm form = Form();
        const TicketCheck check = CheckTicket(form);
        if (check.focus == TicketField::None)
            return TroubleTicketText(form, InstallationIdLines(server_));
        server_.op.Message(check.message, MessageIcon::Exclamation, kAppTitle);
        QWidget* focus[] = {nullptr, Text1, Text2[0], Check1[0], Check2[0], Text3};
        focus[static_cast<int>(check.focus)]->setFocus();
    } catch (const std::exception& error) {
        server_.op.Message(
            std::string("There was an error creating Trouble Ticket.\n\n") + error.what(),
            MessageIcon::Exclamation, kAppTitle);
    }
    return {};
}

void VqSupport::Command1_Click() {
    const std::string ticket = MakeTicket();
    if (ticket.empty()) return;
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(QString::fromStdString(ticket));
    server_.op.Message(
        "Your Trouble Ticket has been sent to clipboard.\n\nPlease do not change it and leave it "
        "as it is.\n\nPaste it to your e-mail message and send it to " +
            kSupportMailAddress +
            ".\nThe destination e-mail address is also in the first line of Trouble Ticket.",
        MessageIcon::Information, kAppTitle);
}

void VqSupport::Command3_Click() {
    const std::string ticket = MakeTicket();
    if (ticket.empty()) return;
    const std::string name = ChooseTicketFile ? ChooseTicketFile() : std::string();
    if (name.empty()) return;
    std::string error;
    if (!WriteFileAtomic(name, ticket, &error)) {
        server_.op.Message("Cannot write your Trouble Ticket to file: " + name + "!\n\n" + error,
                           MessageIcon::Exclamation, kAppTitle);
        return;
    }
    server_.op.Message(
        "Your Trouble Ticket has been copied to file: " + name +
            ".\n\nPlease do not change it and leave it as it is.\n\nAttach it to your e-mail "
            "message and send it to " +
            kSupportMailAddress +
            ".\nThe destination e-mail address is also in the first line of Trouble Ticket.",
        MessageIcon::Information, kAppTitle);
    Command2->setFocus();
}

void ShowSupportPage(QWidget* parent, Server& server) {
    VqSupport page(server, parent);
    page.exec();
}

}  // namespace vq
