// The task file: its plain and encrypted forms, every failure of the load, the name check.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <tuple>
#include <vector>

#include "platform/Files.h"
#include "platform/UniqueFd.h"
#include "storage/TaskFile.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::FakeClock;
using test::TempDir;

// The general fields in their file order: member, tag and the sample's value.
const std::tuple<std::string TaskGeneral::*, const char*, std::string> kGeneralFields[] = {
    {&TaskGeneral::TaskName, "TASKNAME", "Nightly build"},
    {&TaskGeneral::User, "USER", "$LOCALUSER$"},
    {&TaskGeneral::Password, "PASSWORD",
     "0DE15DC7FDF21B9763B790482CDEF7F5E14FA8930373F8F84DA2EB06AD1FCC2AA8AB9C5F97031ABD"},
    {&TaskGeneral::Domain, "DOMAIN", "$LOCALS$"},
    {&TaskGeneral::Server, "SERVER", "HOST"},
    {&TaskGeneral::ServerPath, "SERVERPATH", "/srv"},
    {&TaskGeneral::Dependent, "DEPENDENT", "Other"},
    {&TaskGeneral::TaskReportFile, "TASKREPORTFILE", "report"},
    {&TaskGeneral::MaxRC, "MAXRC", "1"},
    {&TaskGeneral::QueuePriority, "QUEUEPRIORITY", "3"},
    {&TaskGeneral::CpuPriority, "CPUPRIORITY", "22"},
    {&TaskGeneral::ScheduledTime, "SCHEDULEDTIME", "2026-11-22 12:00:00"},
    {&TaskGeneral::TaskRepeat, "TASKREPEAT", "0000" + std::string(38, ' ') + "0000ED"},
    {&TaskGeneral::MaxTime, "MAXTIME", "0"},
    {&TaskGeneral::TaskClass, "TASKCLASS", "B"},
    {&TaskGeneral::SubUser, "SUBUSER", "anna"},
    {&TaskGeneral::SubDomain, "SUBDOMAIN", "$LOCALS$"},
    {&TaskGeneral::SubServer, "SUBSERVER", "HOST"},
    {&TaskGeneral::SubData, "SUBDATA", "d"},
    {&TaskGeneral::RepeatCancel, "REPEATCANCEL", "0"},
    {&TaskGeneral::FontName, "FONTNAME", "Mono"},
    {&TaskGeneral::FontSize, "FONTSIZE", "10"},
    {&TaskGeneral::FontColor, "FONTCOLOR", "0"},
    {&TaskGeneral::FontCharset, "FONTCHARSET", "0"},
    {&TaskGeneral::FontBold, "FONTBOLD", "1"},
    {&TaskGeneral::FontItalic, "FONTITALIC", "0"},
    {&TaskGeneral::Reserved1, "RESERVED1", "r1"},
    {&TaskGeneral::Reserved2, "RESERVED2", "r2"},
};

TaskFileData SampleTask() {
    TaskFileData t;
    for (const auto& [member, tag, value] : kGeneralFields) t.general.*member = value;
    t.general.EditPpp = "1";
    t.steps.push_back({"Build", "make\r\nmake install", "rc.txt", "/tmp", "A=1\r\nB=2", "80", "300",
                       "1", "2", "1"});
    t.taskFiles.push_back({"/home/a/x", "/srv/x", "1"});
    t.environ.push_back({"1", "Cap", "VAR", "T", "V", "H", "0", "9", "5", "F"});
    return t;
}

std::string ValueLine(const std::string& tag, const std::string& value) {
    return "\t<" + tag + ">" + value + "</" + tag + ">\r\n";
}

// A section as the file holds it: its tag, its value lines, its closing tag.
std::string Section(const std::string& name,
                    const std::vector<std::pair<std::string, std::string>>& fields) {
    std::string text = "<" + name + ">\r\n";
    for (const auto& [tag, value] : fields) text += ValueLine(tag, value);
    return text + "</" + name + ">\r\n";
}

std::string SampleText() {
    std::string text = "Orvantis File Version 1.0\r\n<ORVANTIS>\r\n<GENERAL>\r\n";
    for (const auto& [member, tag, value] : kGeneralFields) text += ValueLine(tag, value);
    return text + ValueLine("NUMBERSTEPS", "1") + ValueLine("NUMBERTASKFILES", "1") +
           ValueLine("NUMBERENVIRON", "1") + "</GENERAL>\r\n" +
           Section("STEP", {{"STEPNAME", "Build"}, {"COMMAND", "make\x01make install"},
                            {"FILERC", "rc.txt"}, {"WORKINGDIRECTORY", "/tmp"},
                            {"ENVIRONMENT", "A=1\x01" "B=2"}, {"BUFFWIDTH", "80"},
                            {"BUFFHEIGHT", "300"}, {"MINRC", "1"}, {"MAXRC", "2"},
                            {"EXECUTE", "1"}}) +
           Section("TASKFILE",
                   {{"LOCALPATH", "/home/a/x"}, {"SERVERPATH", "/srv/x"}, {"COPY", "1"}}) +
           Section("ENVIRON", {{"STEP", "1"}, {"CAPTION", "Cap"}, {"VARIABLE", "VAR"},
                               {"TYPE", "T"}, {"VALUE", "V"}, {"HELP", "H"}, {"MIN", "0"},
                               {"MAX", "9"}, {"PERCENT", "5"}, {"FORMAT", "F"}}) +
           "</ORVANTIS>\r\n";
}
const std::string kSampleText = SampleText();

// Every field of `read` equals that of `written`: the writer, pinned to the byte below, puts
// each field under its own tag, so equal texts mean equal fields; the counts of the sections
// decided how many were read.
void ExpectSameTask(const TaskFileData& written, const TaskFileData& read, bool withEditPpp) {
    EXPECT_EQ(TaskFileText(read), TaskFileText(written));
    EXPECT_EQ(read.general.EditPpp, withEditPpp ? written.general.EditPpp : "");
}

class TaskFileLoad : public ::testing::Test {
  protected:
    std::string Write(const std::string& text, const std::string& name = "task.vqf") {
        const std::string path = dir.Path() + name;
        EXPECT_TRUE(WriteFileAtomic(path, text));
        return path;
    }
    bool Load(const std::string& path) { return LoadTaskFile(clock, path, task, error); }
    // Loads `text` and expects failure with `description` at `progress`.
    void ExpectFailure(const std::string& text, const std::string& description, int progress) {
        ExpectLoadError(Write(text), description, progress);
    }
    void ExpectLoadError(const std::string& path, const std::string& description, int progress) {
        EXPECT_FALSE(Load(path));
        EXPECT_EQ(error, "ERROR: Cannot Open \"" + path + "\". \n\n" + description +
                             "\n\nLoad Progress Number: " + std::to_string(progress));
    }
    static std::string Replace(std::string text, const std::string& from, const std::string& to) {
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    }

    TempDir dir;
    FakeClock clock;
    TaskFileData task;
    std::string error;
};

TEST_F(TaskFileLoad, PlainFileIsWrittenToTheByteAndReadBackFieldByField) {
    const TaskFileData sample = SampleTask();
    const std::string path = dir.Path() + "saved.vqf";
    ASSERT_TRUE(SaveTaskFile(path, sample, false));
    EXPECT_EQ(test::ReadFileText(path), kSampleText);
    ASSERT_TRUE(Load(path)) << error;
    ExpectSameTask(sample, task, false);
    EXPECT_EQ(task.steps[0].Command, "make\r\nmake install");
    EXPECT_EQ(clock.slept, 0);
    EXPECT_FALSE(SaveTaskFile(dir.Path() + "missing/x.vqf", sample, false, &error));
    EXPECT_FALSE(error.empty());
}

// LF line ends, free indentation, either version line with either file tag, closing lines
// that are not compared, and anything after the last section, up to the size bound.
TEST_F(TaskFileLoad, WhatTheReaderToleratesLeavesTheFieldsAsTheyAre) {
    std::string lf = kSampleText;
    for (size_t at = lf.find("\r\n"); at != std::string::npos; at = lf.find("\r\n", at))
        lf.replace(at, 2, "\n");
    const std::string variants[] = {
        Replace(Replace(lf, "\n<GENERAL>\n", "\n      <GENERAL>   \n"), "\t<USER>", "<USER>"),
        Replace(kSampleText, "Orvantis File Version 1.0", "  Belquinn File Version 1.0 \t"),
        Replace(kSampleText, "<ORVANTIS>", "<BELQUINN>"),
        Replace(Replace(kSampleText, "</GENERAL>", "</WRONG>"), "</STEP>", "whatever"),
        Replace(kSampleText, "</ORVANTIS>", "</ORVANTIS>\r\ntrailing garbage <STEP>"),
        kSampleText + std::string(kMaxTaskFileSize - kSampleText.size(), 'x')};
    for (const std::string& text : variants) {
        ASSERT_TRUE(Load(Write(text))) << error;
        ExpectSameTask(SampleTask(), task, false);
    }
}

TEST_F(TaskFileLoad, DamagedFilesFailWithTheirDescriptionAndProgress) {
    const std::string user = "\t<USER>$LOCALUSER$</USER>\r\n";
    const std::string swapped =
        Replace(Replace(kSampleText, user, ""), "\t<DOMAIN>", user + "\t<DOMAIN>");
    // The file's text, the description of its failure and the progress number.
    const std::tuple<std::string, const char*, int> cases[] = {
        {"", "Invalid File Version.", 6},
        {kSampleText + std::string(kMaxTaskFileSize + 1 - kSampleText.size(), 'x'),
         "File too big.", 2},
        {Replace(kSampleText, "Orvantis File Version 1.0", "orvantis file version 1.0"),
         "Invalid File Version.", 6},
        {Replace(kSampleText, "<ORVANTIS>", "<OTHER>"), "Invalid File Format.", 6},
        {Replace(kSampleText, "\t<RESERVED1>r1</RESERVED1>\r\n", ""), "Invalid Data: RESERVED1", 6},
        {swapped, "Invalid Data: USER", 6},  // two fields swapped fail at the first of them
        {Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>0<"), "Invalid File Format.", 7},
        {Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>2<"), "Invalid File Format.", 7},
        {Replace(kSampleText, "<STEPNAME>Build", "<STEPNAME2>Build"), "Invalid Data: STEPNAME", 7},
        {Replace(kSampleText, "<TASKFILE>\r\n", "<FILE>\r\n"), "Invalid File Format.", 8},
        {Replace(kSampleText, "\t<COPY>1</COPY>\r\n", ""), "Invalid Data: COPY", 8},
        {Replace(kSampleText, "<ENVIRON>\r\n", "<ENV>\r\n"), "Invalid File Format.", 9},
        {Replace(kSampleText, "\t<HELP>H</HELP>\r\n", ""), "Invalid Data: HELP", 9}};
    for (const auto& [text, description, progress] : cases)
        ExpectFailure(text, description, progress);
}

// A clock whose sleeps let a writer's lock go once `heldMs` have passed.
class ReleasingClock final : public Clock {
  public:
    ReleasingClock(int fd, int heldMs) : fd_(fd), heldMs_(heldMs) {}
    VqDate Now() override { return 0; }
    void Sleep(int milliseconds) override {
        slept += milliseconds;
        if (slept >= heldMs_) ::flock(fd_, LOCK_UN);
    }
    int slept = 0;

  private:
    int fd_, heldMs_;
};

// A missing file, and one under either kind of lock, are tried six times, 100 ms apart; a
// file held for less than half a second is read at the first free attempt; a folder is no
// task file at all.
TEST_F(TaskFileLoad, FilesThatCantBeOpenedFailWithTheirProgress) {
    const std::string absent = dir.Path() + "absent.vqf";
    ExpectLoadError(absent, "No such file or directory", 907);
    EXPECT_EQ(clock.slept, 500);

    const std::string path = Write(kSampleText);
    const UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    ASSERT_EQ(::fcntl(fd.Get(), F_OFD_SETLK, &lock), 0);
    ExpectLoadError(path, ErrnoText(EWOULDBLOCK), 907);
    lock.l_type = F_UNLCK;
    ::fcntl(fd.Get(), F_OFD_SETLK, &lock);

    ASSERT_EQ(::flock(fd.Get(), LOCK_EX), 0);
    ReleasingClock held(fd.Get(), 300);
    EXPECT_TRUE(LoadTaskFile(held, path, task, error)) << error;
    EXPECT_EQ(held.slept, 300);

    ASSERT_TRUE(MakeFolders(dir.Path() + "folder.vqf"));
    EXPECT_FALSE(Load(dir.Path() + "folder.vqf"));
    EXPECT_NE(error.find("Load Progress Number: 1"), std::string::npos) << error;
}

TEST_F(TaskFileLoad, EncryptedFileIsReadLikeItsPlainTwinAndFailsAsAnInvalidVersionWhenDamaged) {
    const TaskFileData sample = SampleTask();
    const std::string path = dir.Path() + "encrypted.vqf";
    ASSERT_TRUE(SaveTaskFile(path, sample, true));
    const std::string encrypted = test::ReadFileText(path);
    const std::string opening = "<?xml version=\"1.0\"?>\r\n<orvantisfile version=\"1.1\" encrypted=\"yes\">\r\n" +
                                EncryptedBeginMarker() + "\r\n";
    EXPECT_EQ(encrypted.substr(0, opening.size()), opening);
    EXPECT_EQ(encrypted.find("Nightly"), std::string::npos);
    const std::string closing = EncryptedEndMarker() + "\r\n</orvantisfile>\r\n";
    EXPECT_EQ(encrypted.substr(encrypted.size() - closing.size()), closing);
    ASSERT_TRUE(Load(path)) << error;
    ExpectSameTask(sample, task, true);
    // A damaged encrypted file is no encrypted file, so the plain parse meets it and refuses it.
    const size_t line4 = encrypted.find(EncryptedBeginMarker()) + 42;
    std::string badCharacter = encrypted;
    badCharacter[encrypted.find("\r\n", line4) + 5] = ' ';  // no code table holds it
    for (const std::string& damaged :
         {badCharacter, Replace(encrypted, EncryptedEndMarker(), "end"),
          Replace(encrypted, "</orvantisfile>", "</other>"),
          encrypted.substr(0, line4) + encrypted.substr(encrypted.find("\r\n", line4))})
        ExpectFailure(damaged, "Invalid File Version.", 6);
}

TEST(FileSystemNames, FieldsThatBecomeNamesAreChecked) {
    // The field, its value and a pattern of the problem found.
    const std::tuple<std::string TaskGeneral::*, std::string, std::string> cases[] = {
        {&TaskGeneral::TaskReportFile, "..", "TASKREPORTFILE"},
        {&TaskGeneral::User, "", "USER \"\" can't be a folder or file name: it must not be empty"},
        {&TaskGeneral::Domain, std::string("a\0b", 3), "DOMAIN"},
        {&TaskGeneral::Domain, ".", "DOMAIN"}};
    for (const auto& [field, value, problem] : cases) {
        TaskGeneral g = SampleTask().general;
        g.*field = value;
        EXPECT_THAT(FileSystemNameProblem(g), testing::ContainsRegex(problem)) << value;
    }
}

}  // namespace
}  // namespace vq
