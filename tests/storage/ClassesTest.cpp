#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "platform/Files.h"
#include "storage/Classes.h"
#include "storage/TaggedStream.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

std::string ClassesPath(TestServer& ts) { return ts->DataPath + kClassesFileName; }

// The file text of the defaults with `from` replaced by `to` once.
std::string DefaultsWith(const std::string& from, const std::string& to) {
    std::string text = ClassesFileText(ClassData());
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(ClassTable, DefaultsAreClassesAToZWithTheirLimits) {
    ClassData data;
    for (int i = 0; i < kClassCount; ++i) {
        const ClassEntry& c = data.ClassTable[static_cast<size_t>(i)];
        EXPECT_EQ(c.ClassName, std::string(1, static_cast<char>('A' + i)));
        EXPECT_EQ(c.MaxTime, 0);
        EXPECT_EQ(c.MaxCpu, i == 0 ? 0 : 1);
        EXPECT_EQ(c.CpuPriority, 22);
        EXPECT_EQ(c.MaxMemory, 0);
        EXPECT_EQ(c.MaxIo, 0);
        EXPECT_EQ(c.QueuePriority, 0);
        EXPECT_EQ(c.MaxUnits, i == 0 ? 0 : 1);
    }
    EXPECT_EQ(data.Ponders, (std::array<double, 7>{1, 1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(data.NonWorkCache, std::string(732, ' '));
    EXPECT_EQ(data.NonWorkBaseYear, 0);
}

TEST(ClassTable, ClassIndexComparesInUpperCaseAndFallsBackToA) {
    ClassData data;
    EXPECT_EQ(ClassIndex(data, "b"), 1);
    EXPECT_EQ(ClassIndex(data, "Z"), 25);
    EXPECT_EQ(ClassIndex(data, "?"), 0);
    EXPECT_EQ(ClassIndex(data, ""), 0);
    EXPECT_EQ(ClassIndex(data, "BB"), 0);
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    EXPECT_EQ(ClassIndex(data, "i"), 8);
}

TEST(ClassTable, UnitsRoundHalfToEvenAndGiveZeroWhenTheyDontFit) {
    ClassData data;
    ClassEntry& c = data.ClassTable[3];
    c.MaxCpu = 1;
    c.MaxMemory = 0;
    data.Ponders[0] = 2.5;
    ComputeClassUnits(data);
    EXPECT_EQ(c.MaxUnits, 2);
    data.Ponders[0] = 3.5;
    ComputeClassUnits(data);
    EXPECT_EQ(c.MaxUnits, 4);
    c.MaxCpu = 10;
    c.MaxMemory = 100;
    c.MaxIo = 1000 * kIoScale;
    data.Ponders = {1, 0.5, 0.25, 0, 0, 0, 0};
    ComputeClassUnits(data);
    EXPECT_EQ(c.MaxUnits, 10 + 50 + 250);
    c.MaxMemory = INT32_MAX;
    data.Ponders[1] = 2;
    ComputeClassUnits(data);
    EXPECT_EQ(c.MaxUnits, 0);
}

TEST(ClassesFile, IsWrittenInFileFormExactly) {
    ClassData data;
    data.Ponders[1] = 0.5;
    ClassEntry& b = data.ClassTable[1];
    b.MaxTime = 3600;
    b.MaxCpu = 60;
    b.CpuPriority = 31;
    b.MaxMemory = 2048;
    b.MaxIo = 12345 * kIoScale + 5000;
    b.QueuePriority = 150;
    const std::string text = ClassesFileText(data);
    const std::string head =
        "    <Orvantis Classes>\r\n"
        "    <PONDERS>\r\n"
        "        <PONDER0>1</PONDER0>\r\n"
        "        <PONDER1>0.5</PONDER1>\r\n"
        "        <PONDER2>1</PONDER2>\r\n"
        "        <PONDER3>0</PONDER3>\r\n"
        "        <PONDER4>0</PONDER4>\r\n"
        "        <PONDER5>0</PONDER5>\r\n"
        "        <PONDER6>0</PONDER6>\r\n"
        "    </PONDERS>\r\n"
        "    <CLASS-0>\r\n"
        "        <CLASSNAME>A</CLASSNAME>\r\n"
        "        <MAXTIME>0</MAXTIME>\r\n"
        "        <CPU>0</CPU>\r\n"
        "        <CPUP>22</CPUP>\r\n"
        "        <MEM>0</MEM>\r\n"
        "        <IO>0</IO>\r\n"
        "        <QP>0</QP>\r\n"
        "    </CLASS-0>\r\n"
        "    <CLASS-1>\r\n"
        "        <CLASSNAME>B</CLASSNAME>\r\n"
        "        <MAXTIME>3600</MAXTIME>\r\n"
        "        <CPU>60</CPU>\r\n"
        "        <CPUP>31</CPUP>\r\n"
        "        <MEM>2048</MEM>\r\n"
        "        <IO>12345.5</IO>\r\n"
        "        <QP>150</QP>\r\n"
        "    </CLASS-1>\r\n";
    EXPECT_EQ(text.substr(0, head.size()), head);
    const std::string tail = "        <QP>0</QP>\r\n    </CLASS-25>\r\n";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    // 10 lines of ponders, 9 for each class, every one closed by CR LF.
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10 + 26 * 9);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 10 + 26 * 9);
}

TEST(ClassesFile, SavedAndLoadedFieldByField) {
    TestServer ts;
    ClassData& data = ts->classes;
    data.Ponders = {2, 0.5, 0.25, 7, 90, 5, 6};
    for (int i = 0; i < kClassCount; ++i) {
        ClassEntry& c = data.ClassTable[static_cast<size_t>(i)];
        c.MaxTime = 100 + i;
        c.MaxCpu = 200 + i;
        c.CpuPriority = static_cast<uint8_t>(10 + i);
        c.MaxMemory = 300 + i;
        c.MaxIo = (400 + i) * kIoScale;
        c.QueuePriority = 500 + i;
    }
    ASSERT_TRUE(SaveClasses(*ts));
    data = ClassData();
    ASSERT_TRUE(LoadClasses(*ts));
    EXPECT_EQ(data.Ponders, (std::array<double, 7>{2, 0.5, 0.25, 7, 90, 5, 6}));
    for (int i = 0; i < kClassCount; ++i) {
        const ClassEntry& c = data.ClassTable[static_cast<size_t>(i)];
        EXPECT_EQ(c.ClassName, std::string(1, static_cast<char>('A' + i)));
        EXPECT_EQ(c.MaxTime, 100 + i);
        EXPECT_EQ(c.MaxCpu, 200 + i);
        EXPECT_EQ(c.CpuPriority, 10 + i);
        EXPECT_EQ(c.MaxMemory, 300 + i);
        EXPECT_EQ(c.MaxIo, (400 + i) * kIoScale);
        EXPECT_EQ(c.QueuePriority, 500 + i);
        // The units of the file's values, rounded half to even as nearbyint does by default.
        EXPECT_EQ(c.MaxUnits, static_cast<int32_t>(std::nearbyint(
                                  2.0 * (200 + i) + 0.5 * (300 + i) + 0.25 * (400 + i))));
    }
    EXPECT_EQ(ts.LogText(), "");
}

TEST(ClassesFile, MissingFileGivesDefaultsAndSuccess) {
    TestServer ts;
    ts->classes.ClassTable[4].MaxCpu = 77;
    EXPECT_TRUE(LoadClasses(*ts));
    EXPECT_EQ(ts->classes.ClassTable[4].MaxCpu, 1);
    EXPECT_EQ(ts->classes.ClassTable[4].MaxUnits, 1);
    EXPECT_EQ(ts.LogText(), "");
}

TEST(ClassesFile, WrongSectionKeepsTheClassesReadBeforeIt) {
    TestServer ts;
    ClassData written;
    written.ClassTable[0].MaxCpu = 100;
    written.ClassTable[1].QueuePriority = 42;
    written.ClassTable[2].MaxMemory = 99;
    std::string text = ClassesFileText(written);
    const size_t at = text.find("<CLASS-2>");
    text.replace(at, 9, "<CLASS-3>");
    ASSERT_TRUE(WriteFileAtomic(ClassesPath(ts), text));

    EXPECT_FALSE(LoadClasses(*ts));
    const ClassData& data = ts->classes;
    EXPECT_EQ(data.ClassTable[0].MaxCpu, 100);
    EXPECT_EQ(data.ClassTable[1].QueuePriority, 42);
    EXPECT_EQ(data.ClassTable[2].MaxMemory, 0);
    // The units stay those of the defaults.
    EXPECT_EQ(data.ClassTable[0].MaxUnits, 0);
    EXPECT_NE(
        ts.LogText().find("Error occured while loading classes.\n\nDefault values will be used.\n\n"
                          "Invalid File Format."),
        std::string::npos)
        << ts.LogText();
}

TEST(ClassesFile, IoUpToTheLongRangeIsRead) {
    TestServer ts;
    ASSERT_TRUE(
        WriteFileAtomic(ClassesPath(ts), DefaultsWith("<IO>0</IO>", "<IO>2147483647</IO>")));
    EXPECT_TRUE(LoadClasses(*ts));
    EXPECT_EQ(ts->classes.ClassTable[0].MaxIo, int64_t{2147483647} * kIoScale);
}

TEST(ClassesFile, DamagedFilesFailWithTheirDescription) {
    const std::string full = ClassesFileText(ClassData());
    const std::pair<std::string, const char*> cases[] = {
        {DefaultsWith("</CLASS-0>", "</CLASS-9>"), "Invalid File Format."},
        {DefaultsWith("<IO>0</IO>", "<IO>2147483648</IO>"), "Default values will be used.\n\nOverflow"},
        {full.substr(0, full.find("    <CLASS-13>")), "Input past end of file"},
        {DefaultsWith("<MEM>0</MEM>", "<MEM>lots</MEM>"), "Type mismatch"},
        {DefaultsWith("<CPU>1</CPU>", "<CPUX>1</CPUX>"), "Invalid Data: CPU"}};
    for (const auto& [text, description] : cases) {
        TestServer ts;
        ASSERT_TRUE(WriteFileAtomic(ClassesPath(ts), text));
        EXPECT_FALSE(LoadClasses(*ts)) << description;
        EXPECT_NE(ts.LogText().find(description), std::string::npos) << ts.LogText();
        EXPECT_EQ(ts->classes.ClassTable[0].MaxIo, 0);
    }
}

TEST(ClassesFile, FailedSaveIsLogged) {
    TestServer ts;
    ASSERT_TRUE(MakeFolders(ClassesPath(ts)));  // a folder where the file should go
    EXPECT_FALSE(SaveClasses(*ts));
    EXPECT_NE(ts.LogText().find("Error occured while saving classes.\n\n"), std::string::npos);
}

class NonWorkDays : public ::testing::Test {
  protected:
    void WriteDates(const std::string& lines) {
        ASSERT_TRUE(WriteFileAtomic(NonWorkFilePath(*ts), lines));
    }
    bool NonWork(int y, int m, int d) {
        return IsNonWorkDay(*ts, MakeDate({y, m, d, 10, 30, 0, 0}));
    }
    size_t Marks() const {
        return static_cast<size_t>(std::count(ts.server->classes.NonWorkCache.begin(),
                                              ts.server->classes.NonWorkCache.end(), 'H'));
    }
    TestServer ts;
};

TEST_F(NonWorkDays, QuotedDatesInBothFormsAreNonWorking) {
    WriteDates("\"2026-12-25\"\r\n\"" + FormatLocaleDate(MakeDate({2026, 12, 26})) +
               "\"\r\n\r\n\"2027-01-01\"\r\n");
    EXPECT_TRUE(NonWork(2026, 12, 25));
    EXPECT_TRUE(NonWork(2026, 12, 26));
    EXPECT_FALSE(NonWork(2026, 12, 27));
    EXPECT_TRUE(NonWork(2027, 1, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2026);
    EXPECT_EQ(Marks(), 3u);
}

TEST_F(NonWorkDays, TheCacheHoldsExactlyTwoYearsAndMovesOn) {
    WriteDates("\"2026-05-01\"\r\n\"2027-05-01\"\r\n\"2028-05-01\"\r\n");
    EXPECT_TRUE(NonWork(2026, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkCache.size(), 732u);
    EXPECT_EQ(Marks(), 2u);  // the year after next has no place yet
    // A change to the file isn't seen while the cached years stay.
    WriteDates("\"2026-05-01\"\r\n\"2027-05-01\"\r\n\"2027-06-01\"\r\n\"2028-05-01\"\r\n");
    EXPECT_FALSE(NonWork(2027, 6, 1));
    // The year after the two moves the cache by one year and reads the file again.
    EXPECT_TRUE(NonWork(2028, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2027);
    EXPECT_TRUE(NonWork(2027, 6, 1));
    // A year before the cache has no place in it.
    EXPECT_FALSE(NonWork(2026, 5, 1));
    // A jump of more than a year starts the cache at the date's own year.
    EXPECT_FALSE(NonWork(2031, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2031);
}

TEST_F(NonWorkDays, LastDayOfALeapYearIsDay366) {
    WriteDates("\"2028-12-31\"\r\n\"2029-12-31\"\r\n");
    EXPECT_TRUE(NonWork(2028, 12, 31));
    const std::string& cache = ts->classes.NonWorkCache;
    EXPECT_EQ(cache[365], 'H');        // row 2028, day 366
    EXPECT_EQ(cache[366 + 364], 'H');  // row 2029, day 365
    EXPECT_EQ(cache[366 + 365], ' ');  // no day 366 in 2029
    EXPECT_TRUE(NonWork(2029, 12, 31));
    EXPECT_FALSE(NonWork(2029, 12, 30));
}

TEST_F(NonWorkDays, MissingFileOrBadLineGivesFalseAndKeepsWhatWasRead) {
    EXPECT_FALSE(NonWork(2026, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2026);
    ts->classes.NonWorkBaseYear = 0;
    WriteDates("\"2026-05-01\"\r\n\"no date\"\r\n\"2026-05-02\"\r\n");
    EXPECT_FALSE(NonWork(2026, 5, 1));  // the call that fails gives false
    EXPECT_TRUE(NonWork(2026, 5, 1));   // the cache holds what came before the bad line
    EXPECT_FALSE(NonWork(2026, 5, 2));
}

}  // namespace
}  // namespace vq
