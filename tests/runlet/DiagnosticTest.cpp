// The text of Diag1.txt.
#include "runlet/Diagnostic.h"

#include <gtest/gtest.h>

namespace vq {
namespace {

TEST(DiagnosticTest, HeaderAndOneLinePerProcess) {
    DiagnosticHeader header{"000012", "Build", 2, 4711, "held", "2026-11-22 12:00:00"};
    ProcessInfo shell;
    shell.stat.pid = 4711;
    shell.stat.ppid = 4700;
    shell.stat.state = 'T';
    shell.stat.userTicks = 150;
    shell.stat.systemTicks = 50;
    shell.memory = {2048, 1024};
    shell.commandLine = "sh -c make all";
    ProcessInfo gone;
    gone.stat.pid = 4712;
    gone.stat.ppid = 4711;
    gone.stat.state = 'Z';
    gone.stat.name = "cc1";
    const std::string text = FormatDiagnostic(header, {shell, gone}, 100);
    EXPECT_EQ(text.substr(0, text.find("\r\n\r\n") + 4),
              "Diagnostic of step 2 of task 000012 Build\r\n"
              "Taken 2026-11-22 12:00:00, process group 4711, step held, 2 processes\r\n\r\n");
    EXPECT_NE(text.find("    4711     4700  stopped            2.00         1024         2048  sh -c make all\r\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("zombie"), std::string::npos);
    EXPECT_NE(text.find("[cc1]\r\n"), std::string::npos);
}

}  // namespace
}  // namespace vq
