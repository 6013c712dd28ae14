#pragma once
// vqctl's one client of the running server on the session bus, and the way a command that
// fails ends: a message on standard error and an exit code (1 refused, 2 no server, an unknown
// key or a usage error).
#include <QCoreApplication>
#include <QString>
#include <QVariant>
#include <functional>
#include <memory>
#include <string>

namespace vqctl {

inline constexpr const char* kExtrasInterface = "com.halvenor.OrvantisServer.Extras";

// What a failed command leaves: its exit code; the message has been said.
struct Refusal {
    int exitCode;
};

QString ToQString(const std::string& text);
// Says "vqctl COMMAND: MESSAGE" on standard error and ends the command.
[[noreturn]] void Fail(const std::string& command, int exitCode, const std::string& message);
// Runs a command's body; a refusal has said its piece already.
int Guarded(const std::function<int()>& body);

// The server's object on the session bus. Every call either answers or ends the command: an
// error of the server's refusals ends it with its text, exit code 2 for an unknown key or
// phase and 1 for the others.
class ServerConnection {
  public:
    explicit ServerConnection(std::string command);

    // The first value of the answer; an empty variant for a member without one.
    QVariant Call(const char* interface, const char* member, const QVariantList& args);
    QVariant Call(const char* member, const QVariantList& args);
    const QVariantList& Answer() const { return answer_; }

    QVariant Property(const char* interface, const char* name);
    QVariant Property(const char* name);
    // The queue root, with a closing "/".
    std::string QueueRoot();
    const std::string& Command() const { return command_; }

  private:
    std::string command_;
    int argc_ = 1;
    char name_[6] = "vqctl";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QCoreApplication> app_;
    QVariantList answer_;
};

// Copies the task file into $InQ under a name of its own and submits it; prints the new key.
int SubmitFile(ServerConnection& server, const std::string& file);

}  // namespace vqctl
